// instance_mutex.h: the mutex whose owner is the one process with a window.
//
// Held from the launch until the message loop ends, or until this process hands over to an elevated
// successor; then given up once and for good. A lock of its own, since the direct exit of a
// takeover comes from a worker thread. ReleaseMutex has its effect on the owning thread alone;
// closing the handle follows on any.
#pragma once

#include "platform/kernel_objects.h"
#include "platform/mutex.h"

namespace korvane {

class InstanceMutexHolder {
 public:
  // Takes the handle, which may be none.
  void Set(platform::KernelHandle handle, bool owned) KORVANE_EXCLUDES(mutex_);

  // Releases the mutex if it is owned, and closes it. Does nothing without a handle, and nothing
  // the second time.
  void Release() KORVANE_EXCLUDES(mutex_);

 private:
  Mutex mutex_;
  platform::KernelHandle handle_ KORVANE_GUARDED_BY(mutex_);
  bool owned_ KORVANE_GUARDED_BY(mutex_) = false;
  bool released_ KORVANE_GUARDED_BY(mutex_) = false;
};

// The two on the process's own holder. Any thread.
void SetInstanceMutex(platform::KernelHandle handle, bool owned);
void ReleaseInstanceMutex();

}  // namespace korvane
