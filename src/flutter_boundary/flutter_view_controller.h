// flutter_view_controller.h: the engine and its view, as one object that a window owns.
//
// Whether it came up is told by engine() and view(): a controller without a view is unusable but
// harmless. The destructor ends the view and the engine. Window's thread.
#pragma once

#include <memory>
#include <optional>

#include "flutter_boundary/dart_project.h"
#include "flutter_boundary/flutter_engine.h"
#include "flutter_boundary/flutter_view.h"
#include "flutter_boundary/flutter_windows_abi.h"
#include "platform/window_system.h"

namespace flutter {

class FlutterViewController {
 public:
  // Width and height in physical pixels. On failure writes "Failed to create view controller." to
  // the error stream.
  FlutterViewController(int width, int height, const DartProject& project);
  ~FlutterViewController();
  FlutterViewController(const FlutterViewController&) = delete;
  FlutterViewController& operator=(const FlutterViewController&) = delete;

  // Never null; harmless when the engine could not be created or is gone.
  FlutterEngine* engine() const { return engine_.get(); }
  // Null when the controller didn't come up.
  FlutterView* view() const { return view_.get(); }

  // Asks the engine for a frame.
  void ForceRedraw();

  // Offers a message of the top-level window to the engine. A result means that the engine consumed
  // the message: the window returns it and does no more.
  std::optional<korvane::platform::MessageResult> HandleTopLevelWindowProc(
      korvane::platform::WindowHandle window, std::uint32_t message,
      korvane::platform::MessageParameter wparam, korvane::platform::MessageData lparam);

 private:
  // Declared first: destroyed after the controller has ended the engine.
  std::unique_ptr<FlutterEngine> engine_;
  FlutterDesktopViewControllerRef controller_ = nullptr;
  std::unique_ptr<FlutterView> view_;
};

}  // namespace flutter
