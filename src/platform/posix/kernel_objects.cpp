#include "platform/kernel_objects.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <memory>
#include <optional>

#include "platform/no_destructor.h"
#include "platform/posix/kernel_object.h"
#include "platform/posix/named_event.h"
#include "platform/posix/named_mutex.h"
#include "platform/posix/wait_deadline.h"
#include "platform/real_os.h"

namespace korvane::platform {

namespace {

using Handles = std::vector<const KernelHandle*>;

// One record for each object; nothing when one of them is none, or has no descriptor.
std::optional<std::vector<pollfd>> DescriptorsOf(const Handles& handles) {
  std::vector<pollfd> descriptors;
  for (const KernelHandle* handle : handles) {
    const auto* object = ObjectOf<KernelObject>(*handle);
    const int descriptor = object != nullptr ? object->WaitDescriptor() : -1;
    if (descriptor < 0) {
      return std::nullopt;
    }
    descriptors.push_back({.fd = descriptor, .events = POLLIN, .revents = 0});
  }
  return descriptors;
}

// The first object that was ready and whose signal nobody else took in the meantime.
std::optional<std::uint32_t> TakeFirstSignal(const Handles& handles,
                                             const std::vector<pollfd>& descriptors) {
  for (std::size_t index = 0; index < handles.size(); ++index) {
    if (descriptors[index].revents != 0 && ObjectOf<KernelObject>(*handles[index])->TakeSignal()) {
      return static_cast<std::uint32_t>(index);
    }
  }
  return std::nullopt;
}

WaitOutcome WaitForDescriptors(const Handles& handles, std::vector<pollfd>& descriptors,
                               const WaitDeadline& deadline) {
  for (;;) {
    const timespec left = deadline.endless() ? timespec{} : deadline.Left();
    const int ready = ppoll(descriptors.data(), descriptors.size(),
                            deadline.endless() ? nullptr : &left, nullptr);
    if (ready == 0) {
      return {kWaitTimeout, 0};
    }
    if (ready < 0 && errno != EINTR) {
      return {kWaitFailed, static_cast<ErrorCode>(errno)};
    }
    if (ready > 0) {
      if (const std::optional<std::uint32_t> index = TakeFirstSignal(handles, descriptors)) {
        return {*index, 0};
      }
    }
  }
}

class PosixKernelObjects final : public KernelObjects {
 public:
  CreatedMutex CreateNamedMutex(const std::wstring& name, bool initially_owned) override {
    return NamedMutex::Create(*this, name, initially_owned);
  }

  Result<KernelHandle> CreateNamedEvent(const std::wstring& name) override {
    return NamedEvent::Create(*this, name);
  }

  Result<KernelHandle> OpenNamedEvent(const std::wstring& name) override {
    return NamedEvent::Open(*this, name);
  }

  Status SetEvent(const KernelHandle& event) override {
    auto* object = ObjectOf<NamedEvent>(event);
    return object != nullptr ? object->Set() : Status::Fail(kErrorInvalidHandle);
  }

  WaitOutcome Wait(const KernelHandle& object, std::uint32_t milliseconds) override {
    if (auto* mutex = ObjectOf<NamedMutex>(object)) {
      return mutex->mutex().Wait(milliseconds);
    }
    return WaitAny({&object}, milliseconds);
  }

  WaitOutcome WaitAny(const Handles& objects, std::uint32_t milliseconds) override {
    const WaitDeadline deadline(milliseconds);
    std::optional<std::vector<pollfd>> descriptors = DescriptorsOf(objects);
    if (!descriptors || descriptors->empty()) {
      return {kWaitFailed, kErrorInvalidHandle};
    }
    return WaitForDescriptors(objects, *descriptors, deadline);
  }

  Status ReleaseMutex(const KernelHandle& mutex) override {
    auto* object = ObjectOf<NamedMutex>(mutex);
    return object != nullptr ? object->mutex().Release() : Status::Fail(kErrorInvalidHandle);
  }

  Status Close(KernelHandle& handle) override {
    const std::unique_ptr<KernelObject> object(static_cast<KernelObject*>(handle.Release()));
    return object != nullptr ? Status::Ok() : Status::Fail(kErrorInvalidHandle);
  }
};

}  // namespace

KernelObjects& RealKernelObjects() {
  static NoDestructor<PosixKernelObjects> objects;
  return *objects;
}

}  // namespace korvane::platform
