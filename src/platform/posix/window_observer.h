// window_observer.h: who is told what becomes of this process's headless windows.
#pragma once

#include "platform/mutex.h"
#include "platform/posix/headless_windows.h"
#include "platform/window_system.h"

namespace korvane::platform {

// Any thread. The observer is called without the lock.
class WindowObserver {
 public:
  void Set(KorvaneWindowObserver observer, void* user_data) KORVANE_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    current_ = {observer, user_data};
  }

  void Tell(KorvaneWindowChange change, WindowHandle window) KORVANE_EXCLUDES(mutex_) {
    const Registration told = Current();
    if (told.observer != nullptr) {
      told.observer(told.user_data, change, window);
    }
  }

 private:
  struct Registration {
    KorvaneWindowObserver observer = nullptr;
    void* user_data = nullptr;
  };

  Registration Current() KORVANE_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    return current_;
  }

  Mutex mutex_;
  Registration current_ KORVANE_GUARDED_BY(mutex_);
};

}  // namespace korvane::platform
