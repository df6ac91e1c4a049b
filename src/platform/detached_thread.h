// detached_thread.h: a thread that nobody joins.
//
// std::thread isn't used for these: the thread library of the Windows tool chain forgets to keep
// detaching and the thread's own end apart, and then runs one thread's work on two.
#pragma once

#include <exception>
#include <memory>
#include <utility>

namespace korvane::platform {

// Runs entry(argument) on a new thread; false when the system makes none.
[[nodiscard]] bool StartDetachedThread(void (*entry)(void* argument) noexcept, void* argument);

// Runs `work()` on a new thread and destroys it there. A thread that can't be made ends the
// process, as does an exception that leaves the work.
template <typename Work>
void RunDetached(Work work) noexcept {
  auto owned = std::make_unique<Work>(std::move(work));
  constexpr auto kEntry = [](void* argument) noexcept {
    const std::unique_ptr<Work> mine(static_cast<Work*>(argument));
    (*mine)();
  };
  if (!StartDetachedThread(kEntry, owned.get())) {
    std::terminate();
  }
  static_cast<void>(owned.release());  // the thread's now
}

}  // namespace korvane::platform
