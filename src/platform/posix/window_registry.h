// window_registry.h: the classes and the live windows of this process, on the headless side.
//
// Holds facts only; what happens to a window is headless_desktop.h's. Any thread; one lock, which
// is never held while a procedure or an observer runs.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/mutex.h"
#include "platform/posix/headless_windows.h"
#include "platform/posix/message_queue.h"
#include "platform/result.h"
#include "platform/window_system.h"

namespace korvane::platform {

// The numbers that user32 gives, so that both systems' log lines agree.
inline constexpr ErrorCode kErrorAccessDenied = 5;
inline constexpr ErrorCode kErrorInvalidParameter = 87;
inline constexpr ErrorCode kErrorInvalidWindow = 1400;
inline constexpr ErrorCode kErrorClassNotFound = 1407;
inline constexpr ErrorCode kErrorClassExists = 1410;
inline constexpr ErrorCode kErrorClassAbsent = 1411;
inline constexpr ErrorCode kErrorClassHasWindows = 1412;

// The longest name of a class or a property, in characters.
inline constexpr std::size_t kWindowNameLimit = 255;

// A handle names the process too (high word: process, low word: serial number), so it means the
// same window in every process of the user. The serial numbers of a process begin at a random one:
// a handle that outlived its process finds nothing in a later one of the same number.
WindowHandle MakeWindowHandle(std::uint32_t process, std::uint32_t serial);
std::uint32_t ProcessOfHandle(WindowHandle window);

// An area of this place and size; a negative size counts as 0, and the far edges stop at the
// limits.
Rectangle AreaOf(std::int32_t x, std::int32_t y, std::int32_t width, std::int32_t height);

struct WindowSize {
  std::int32_t width = 0;
  std::int32_t height = 0;
  bool operator==(const WindowSize&) const = default;
};
// Never negative, whatever the area.
WindowSize SizeOf(const Rectangle& area);

// Whom a window's messages are for: one of the two procedures.
struct WindowRecipient {
  WindowProcedure procedure = nullptr;
  KorvaneChildProcedure child_procedure = nullptr;
  void* child_data = nullptr;

  MessageResult Receive(WindowHandle window, std::uint32_t message, MessageParameter parameter,
                        MessageData data) const;
};

struct HeadlessWindow {
  WindowHandle handle = nullptr;
  std::shared_ptr<MessageQueue> queue{};  // of the thread that made it
  WindowRecipient recipient{};
  bool top_level = false;  // made by Create, not through the C door
  bool created = false;    // a top-level one whose creation is through: it can be found
  bool visible = false;
  bool size_told = false;  // it has had its first kWmSize
  bool active = false;     // at most one of a thread
  bool destroying = false;
  bool elevated = false;  // whether its process was when it was made
  std::wstring window_class{};
  std::wstring title{};
  WindowHandle parent = nullptr;
  Rectangle area{};
  void* user_data = nullptr;
  std::map<std::wstring, std::uintptr_t> properties{};
  std::set<std::uint32_t> allowed_messages{};
};

class WindowRegistry {
 public:
  Status AddClass(const std::wstring& name, WindowProcedure procedure) KORVANE_EXCLUDES(mutex_);
  Status RemoveClass(const std::wstring& name) KORVANE_EXCLUDES(mutex_);
  // Null when there is no such class.
  WindowProcedure ClassProcedure(const std::wstring& name) KORVANE_EXCLUDES(mutex_);

  // Gives the window its handle.
  WindowHandle Add(HeadlessWindow window) KORVANE_EXCLUDES(mutex_);
  void Remove(WindowHandle window) KORVANE_EXCLUDES(mutex_);

  // Calls visit(HeadlessWindow&) under the lock; false when there is no such window. The visit
  // calls nothing that takes a lock of ours.
  template <typename Visit>
  bool With(WindowHandle window, Visit visit) KORVANE_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    const auto found = windows_.find(window);
    if (found == windows_.end()) {
      return false;
    }
    visit(found->second);
    return true;
  }

  // Handles of all windows for which matches(const HeadlessWindow&) holds, oldest first.
  template <typename Matches>
  std::vector<WindowHandle> All(Matches matches) KORVANE_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    std::vector<WindowHandle> handles;
    for (const auto& [handle, window] : windows_) {
      if (matches(window)) {
        handles.push_back(handle);
      }
    }
    return handles;
  }

  // 0 when the window has no such property; nothing when there is no such window.
  std::optional<std::uintptr_t> PropertyOf(WindowHandle window, const std::wstring& name)
      KORVANE_EXCLUDES(mutex_);

  bool Contains(WindowHandle window) KORVANE_EXCLUDES(mutex_);

  // The parent becomes the child's; refused where one of them is no window of this process, or the
  // parent lies within the child.
  Status SetParent(WindowHandle child, WindowHandle parent) KORVANE_EXCLUDES(mutex_);

 private:
  WindowHandle NextHandle() KORVANE_REQUIRES(mutex_);
  bool LiesWithin(WindowHandle inner, WindowHandle outer) KORVANE_REQUIRES(mutex_);

  Mutex mutex_;
  std::optional<std::uint32_t> last_serial_ KORVANE_GUARDED_BY(mutex_);
  std::map<std::wstring, WindowProcedure> classes_ KORVANE_GUARDED_BY(mutex_);
  std::map<WindowHandle, HeadlessWindow> windows_ KORVANE_GUARDED_BY(mutex_);
};

}  // namespace korvane::platform
