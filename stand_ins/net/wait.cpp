#include "net/wait.h"

#include <algorithm>
#include <stdexcept>

#include "native.h"

namespace korvane::net {
namespace {

Handle OpenOwnPeer() {
  native::StartUp();
  const native::Socket socket = ::socket(AF_INET, SOCK_DGRAM, 0);
  if (static_cast<Handle>(socket) == kNoHandle) {
    return kNoHandle;
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  native::Length length = sizeof address;
  if (native::Prepare(socket) && ::bind(socket, generic, length) == 0 &&
      ::getsockname(socket, generic, &length) == 0 && ::connect(socket, generic, length) == 0) {
    return static_cast<Handle>(socket);
  }
  native::Close(socket);
  return kNoHandle;
}

}  // namespace

StopSignal::StopSignal() : handle_(OpenOwnPeer()) {
  if (handle_ == kNoHandle) {
    throw std::runtime_error("no socket left for a stop signal");
  }
}

StopSignal::~StopSignal() { native::Close(static_cast<native::Socket>(handle_)); }

void StopSignal::Raise() {
  if (raised_.exchange(true, std::memory_order_acq_rel)) {
    return;
  }
  const char byte = 0;
  ::send(static_cast<native::Socket>(handle_), &byte, 1, native::kSendFlags);
}

bool StopSignal::RaisedWithin(std::chrono::milliseconds time) const {
  return Wait({}, this, Deadline::In(time)) == WaitStatus::kStopped;
}

WaitStatus Wait(std::span<const Interest> interests, const StopSignal* stop, Deadline deadline) {
  std::array<Interest, kMostInterests> items{};
  std::size_t count = 0;
  for (const Interest& interest : interests) {
    if (interest.read || interest.write) {
      items.at(count++) = interest;
    }
  }
  if (stop != nullptr) {
    items.at(count++) = Interest{stop->handle_, true, false};
  }
  for (;;) {
    if (stop != nullptr && stop->raised()) {
      return WaitStatus::kStopped;
    }
    const int ready = native::Wait(std::span(items).first(count), deadline.RemainingMs());
    if (stop != nullptr && stop->raised()) {
      return WaitStatus::kStopped;
    }
    if (ready != 0) {
      return WaitStatus::kReady;
    }
    if (deadline.passed()) {
      return WaitStatus::kTimedOut;
    }
  }
}

}  // namespace korvane::net
