#include "platform/posix/window_requests.h"

#include <bit>
#include <optional>
#include <string>

namespace korvane::platform {

namespace {

WindowReply Refusal(ErrorCode error) { return {.error = error}; }

WindowReply ReplyOf(const Status& status) { return {.error = status.error()}; }

WindowReply Find(HeadlessDesktop& desktop, const WindowRequest& request) {
  const std::optional<std::wstring> window_class = FromWire(request.window_class);
  const std::optional<std::wstring> title = FromWire(request.name);
  if (!window_class || !title) {
    return Refusal(kErrorInvalidParameter);
  }
  return {.value = std::bit_cast<std::uint64_t>(desktop.Find(*window_class, *title))};
}

WindowReply Property(HeadlessDesktop& desktop, WindowHandle window, const WindowRequest& request) {
  const std::optional<std::wstring> name = FromWire(request.name);
  if (!name) {
    return Refusal(kErrorInvalidParameter);
  }
  const std::optional<std::uintptr_t> value = desktop.registry().PropertyOf(window, *name);
  return value ? WindowReply{.value = *value} : Refusal(kErrorInvalidWindow);
}

// The rule of integrity levels: to a more privileged process goes only what it lets through.
WindowReply Post(HeadlessDesktop& desktop, WindowHandle window, const WindowRequest& request) {
  bool allowed = false;
  const bool found = desktop.registry().With(window, [&](const HeadlessWindow& target) {
    allowed = !target.elevated || request.elevated != 0 ||
              target.allowed_messages.count(request.message) != 0;
  });
  if (!found) {
    return Refusal(kErrorInvalidWindow);
  }
  if (!allowed) {
    return Refusal(kErrorAccessDenied);
  }
  return ReplyOf(desktop.Post({.window = window,
                               .number = request.message,
                               .parameter = request.parameter,
                               .data = request.data}));
}

}  // namespace

WindowReply AnswerWindowRequest(HeadlessDesktop& desktop, const WindowRequest& request) {
  const auto window = std::bit_cast<WindowHandle>(request.window);
  switch (request.operation) {
    case WindowOperation::kFind:
      return Find(desktop, request);
    case WindowOperation::kExists:
      return desktop.registry().Contains(window) ? WindowReply{} : Refusal(kErrorInvalidWindow);
    case WindowOperation::kProperty:
      return Property(desktop, window, request);
    case WindowOperation::kPost:
      return Post(desktop, window, request);
    case WindowOperation::kShow:
      return ReplyOf(desktop.ShowLater(window, static_cast<int>(request.message)));
    case WindowOperation::kForeground:
      return ReplyOf(desktop.SetForegroundLater(window));
  }
  return Refusal(kErrorInvalidParameter);
}

}  // namespace korvane::platform
