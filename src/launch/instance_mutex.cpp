#include "launch/instance_mutex.h"

#include <utility>

#include "platform/no_destructor.h"
#include "platform/os.h"

namespace korvane {

namespace {

InstanceMutexHolder& Holder() {
  static NoDestructor<InstanceMutexHolder> holder;
  return *holder;
}

}  // namespace

void InstanceMutexHolder::Set(platform::KernelHandle handle, bool owned) {
  const MutexLock lock(mutex_);
  handle_ = std::move(handle);
  owned_ = owned;
  released_ = false;
}

void InstanceMutexHolder::Release() {
  const MutexLock lock(mutex_);
  if (released_ || !handle_) {
    return;
  }
  if (owned_) {
    static_cast<void>(platform::os().kernel_objects->ReleaseMutex(handle_));
  }
  static_cast<void>(platform::os().kernel_objects->Close(handle_));
  owned_ = false;
  released_ = true;
}

void SetInstanceMutex(platform::KernelHandle handle, bool owned) {
  Holder().Set(std::move(handle), owned);
}

void ReleaseInstanceMutex() { Holder().Release(); }

}  // namespace korvane
