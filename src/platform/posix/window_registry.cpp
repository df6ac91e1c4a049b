#include "platform/posix/window_registry.h"

#include <unistd.h>

#include <algorithm>
#include <bit>
#include <limits>
#include <random>
#include <utility>

namespace korvane::platform {

namespace {

constexpr int kProcessShift = 32;

// In the lower half, so that a process never gets to the end of the numbers.
std::uint32_t FirstSerial() { return static_cast<std::uint32_t>(std::random_device()()) >> 1; }

std::int32_t Clamp(std::int64_t value, std::int64_t least) {
  return static_cast<std::int32_t>(
      std::clamp<std::int64_t>(value, least, std::numeric_limits<std::int32_t>::max()));
}

std::int32_t FarEdge(std::int32_t near, std::int32_t extent) {
  return Clamp(std::int64_t{near} + extent, near);
}

}  // namespace

Rectangle AreaOf(std::int32_t x, std::int32_t y, std::int32_t width, std::int32_t height) {
  return {.left = x, .top = y, .right = FarEdge(x, width), .bottom = FarEdge(y, height)};
}

WindowSize SizeOf(const Rectangle& area) {
  return {.width = Clamp(std::int64_t{area.right} - area.left, 0),
          .height = Clamp(std::int64_t{area.bottom} - area.top, 0)};
}

WindowHandle MakeWindowHandle(std::uint32_t process, std::uint32_t serial) {
  return std::bit_cast<WindowHandle>((std::uint64_t{process} << kProcessShift) | serial);
}

std::uint32_t ProcessOfHandle(WindowHandle window) {
  return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(window) >> kProcessShift);
}

MessageResult WindowRecipient::Receive(WindowHandle window, std::uint32_t message,
                                       MessageParameter parameter, MessageData data) const {
  if (procedure != nullptr) {
    return procedure(window, message, parameter, data);
  }
  return child_procedure != nullptr ? child_procedure(child_data, window, message, parameter, data)
                                    : 0;
}

Status WindowRegistry::AddClass(const std::wstring& name, WindowProcedure procedure) {
  if (name.empty() || name.size() > kWindowNameLimit || procedure == nullptr) {
    return Status::Fail(kErrorInvalidParameter);
  }
  const MutexLock lock(mutex_);
  return classes_.emplace(name, procedure).second ? Status::Ok() : Status::Fail(kErrorClassExists);
}

Status WindowRegistry::RemoveClass(const std::wstring& name) {
  const MutexLock lock(mutex_);
  const auto of_class = [&name](const auto& entry) { return entry.second.window_class == name; };
  if (std::any_of(windows_.begin(), windows_.end(), of_class)) {
    return Status::Fail(kErrorClassHasWindows);
  }
  return classes_.erase(name) != 0 ? Status::Ok() : Status::Fail(kErrorClassAbsent);
}

WindowProcedure WindowRegistry::ClassProcedure(const std::wstring& name) {
  const MutexLock lock(mutex_);
  const auto found = classes_.find(name);
  return found == classes_.end() ? nullptr : found->second;
}

WindowHandle WindowRegistry::Add(HeadlessWindow window) {
  const MutexLock lock(mutex_);
  window.handle = NextHandle();
  const WindowHandle handle = window.handle;
  windows_.emplace(handle, std::move(window));
  return handle;
}

void WindowRegistry::Remove(WindowHandle window) {
  const MutexLock lock(mutex_);
  windows_.erase(window);
}

std::optional<std::uintptr_t> WindowRegistry::PropertyOf(WindowHandle window,
                                                         const std::wstring& name) {
  const MutexLock lock(mutex_);
  const auto found = windows_.find(window);
  if (found == windows_.end()) {
    return std::nullopt;
  }
  const auto property = found->second.properties.find(name);
  return property == found->second.properties.end() ? 0 : property->second;
}

bool WindowRegistry::Contains(WindowHandle window) {
  const MutexLock lock(mutex_);
  return windows_.count(window) != 0;
}

Status WindowRegistry::SetParent(WindowHandle child, WindowHandle parent) {
  const MutexLock lock(mutex_);
  const auto found = windows_.find(child);
  if (found == windows_.end() || windows_.count(parent) == 0) {
    return Status::Fail(kErrorInvalidWindow);
  }
  if (LiesWithin(parent, child)) {
    return Status::Fail(kErrorInvalidParameter);
  }
  found->second.parent = parent;
  return Status::Ok();
}

WindowHandle WindowRegistry::NextHandle() {
  last_serial_ = last_serial_.value_or(FirstSerial()) + 1;
  return MakeWindowHandle(static_cast<std::uint32_t>(getpid()), *last_serial_);
}

bool WindowRegistry::LiesWithin(WindowHandle inner, WindowHandle outer) {
  for (WindowHandle window = inner; window != nullptr;) {
    if (window == outer) {
      return true;
    }
    const auto found = windows_.find(window);
    window = found == windows_.end() ? nullptr : found->second.parent;
  }
  return false;
}

}  // namespace korvane::platform
