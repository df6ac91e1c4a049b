#include "platform/posix/foreign_windows.h"

#include <sys/socket.h>

#include <bit>
#include <optional>

#include "platform/posix/window_meeting_place.h"
#include "platform/posix/window_registry.h"
#include "platform/posix/window_wire.h"

namespace korvane::platform {

namespace {

using Answer = Result<std::uint64_t>;

Answer Ask(WindowMeetingPlace& place, std::uint32_t process, const WindowRequest& request) {
  const Result<FileDescriptor> connection = place.Connect(process);
  if (!connection) {
    return Answer::Fail(kErrorInvalidWindow);
  }
  const int peer = connection.value().get();
  WindowReply reply;
  if (send(peer, &request, sizeof(request), MSG_NOSIGNAL) != ssize_t{sizeof(request)} ||
      recv(peer, &reply, sizeof(reply), MSG_TRUNC) != ssize_t{sizeof(reply)} ||
      reply.mark != kWindowWireMark) {
    return Answer::Fail(kErrorInvalidWindow);
  }
  return reply.error == 0 ? Answer(reply.value) : Answer::Fail(reply.error);
}

Answer AskOwner(WindowHandle window, WindowRequest request) {
  request.window = std::bit_cast<std::uint64_t>(window);
  Result<WindowMeetingPlace> place = WindowMeetingPlace::Open();
  return place ? Ask(place.value(), ProcessOfHandle(window), request)
               : Answer::Fail(kErrorInvalidWindow);
}

Status StatusOf(const Answer& answer) {
  return answer ? Status::Ok() : Status::Fail(answer.error());
}

}  // namespace

WindowHandle FindForeignWindow(const std::wstring& window_class, const std::wstring& title) {
  const std::optional<WireText> wire_class = ToWire(window_class);
  const std::optional<WireText> wire_title = ToWire(title);
  Result<WindowMeetingPlace> place = WindowMeetingPlace::Open();
  if (!wire_class || !wire_title || !place) {
    return nullptr;
  }
  const WindowRequest request = {
      .operation = WindowOperation::kFind, .window_class = *wire_class, .name = *wire_title};
  for (const std::uint32_t process : place.value().OtherProcesses()) {
    const Answer found = Ask(place.value(), process, request);
    const auto window = std::bit_cast<WindowHandle>(found ? found.value() : 0);
    if (window != nullptr && ProcessOfHandle(window) == process) {
      return window;
    }
  }
  return nullptr;
}

bool ForeignWindowExists(WindowHandle window) {
  return AskOwner(window, {.operation = WindowOperation::kExists}).ok();
}

std::uintptr_t ForeignWindowProperty(WindowHandle window, const std::wstring& name) {
  const std::optional<WireText> wire_name = ToWire(name);
  if (!wire_name) {
    return 0;
  }
  const Answer value =
      AskOwner(window, {.operation = WindowOperation::kProperty, .name = *wire_name});
  return value ? value.value() : 0;
}

Status ShowForeignWindow(WindowHandle window, int command) {
  return StatusOf(AskOwner(window, {.operation = WindowOperation::kShow,
                                    .message = static_cast<std::uint32_t>(command)}));
}

Status SetForeignForeground(WindowHandle window) {
  return StatusOf(AskOwner(window, {.operation = WindowOperation::kForeground}));
}

Status PostToForeignWindow(const Message& message, bool elevated) {
  return StatusOf(AskOwner(message.window, {.operation = WindowOperation::kPost,
                                            .message = message.number,
                                            .elevated = elevated ? 1U : 0U,
                                            .parameter = message.parameter,
                                            .data = message.data}));
}

}  // namespace korvane::platform
