#include "flutter_boundary/flutter_view_controller.h"

#include <utility>

#include "platform/os.h"

namespace flutter {

FlutterViewController::FlutterViewController(int width, int height, const DartProject& project)
    : engine_(std::make_unique<FlutterEngine>(project)) {
  // Given up before the result is looked at: a failed call has destroyed the engine already.
  if (const FlutterDesktopEngineRef engine = engine_->RelinquishEngine()) {
    controller_ = FlutterDesktopViewControllerCreate(width, height, engine);
  }
  if (controller_ == nullptr) {
    engine_->ForgetEngine();
    korvane::platform::WriteErrorLine("Failed to create view controller.");
    return;
  }
  if (const FlutterDesktopViewRef view = FlutterDesktopViewControllerGetView(controller_)) {
    view_ = std::make_unique<FlutterView>(view);
  }
}

FlutterViewController::~FlutterViewController() {
  view_.reset();
  if (controller_ != nullptr) {
    // Cleared first: the end of the view sends messages, and a window may offer them to us.
    FlutterDesktopViewControllerDestroy(std::exchange(controller_, nullptr));
  }
}

void FlutterViewController::ForceRedraw() {
  if (controller_ != nullptr) {
    FlutterDesktopViewControllerForceRedraw(controller_);
  }
}

std::optional<korvane::platform::MessageResult> FlutterViewController::HandleTopLevelWindowProc(
    korvane::platform::WindowHandle window, std::uint32_t message,
    korvane::platform::MessageParameter wparam, korvane::platform::MessageData lparam) {
  korvane::platform::MessageResult result = 0;
  if (controller_ == nullptr || !FlutterDesktopViewControllerHandleTopLevelWindowProc(
                                    controller_, window, message, wparam, lparam, &result)) {
    return std::nullopt;
  }
  return result;
}

}  // namespace flutter
