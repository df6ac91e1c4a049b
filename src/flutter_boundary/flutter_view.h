// flutter_view.h: the engine's view, a native window that the library made.
#pragma once

#include "flutter_boundary/flutter_windows_abi.h"
#include "platform/window_system.h"

namespace flutter {

// The view belongs to its controller and dies with it. Window's thread.
class FlutterView {
 public:
  explicit FlutterView(FlutterDesktopViewRef view) : view_(view) {}

  korvane::platform::WindowHandle GetNativeWindow() const {
    return FlutterDesktopViewGetHWND(view_);
  }

 private:
  FlutterDesktopViewRef view_;
};

}  // namespace flutter
