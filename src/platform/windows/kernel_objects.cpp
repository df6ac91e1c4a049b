#include "platform/kernel_objects.h"

#include <windows.h>

#include <array>
#include <cstddef>

#include "platform/no_destructor.h"
#include "platform/real_os.h"

namespace korvane::platform {

namespace {

WaitOutcome OutcomeOf(DWORD result) {
  return {result, result == WAIT_FAILED ? ::GetLastError() : 0};
}

Status StatusOf(BOOL succeeded) {
  return succeeded != 0 ? Status::Ok() : Status::Fail(::GetLastError());
}

class WindowsKernelObjects final : public KernelObjects {
 public:
  CreatedMutex CreateNamedMutex(const std::wstring& name, bool initially_owned) override {
    const HANDLE mutex = ::CreateMutexW(nullptr, initially_owned ? TRUE : FALSE, name.c_str());
    const ErrorCode code = ::GetLastError();
    return {Own(mutex), code};
  }

  Result<KernelHandle> CreateNamedEvent(const std::wstring& name) override {
    return Opened(::CreateEventW(nullptr, FALSE, FALSE, name.c_str()));
  }

  Result<KernelHandle> OpenNamedEvent(const std::wstring& name) override {
    return Opened(::OpenEventW(EVENT_MODIFY_STATE, FALSE, name.c_str()));
  }

  Status SetEvent(const KernelHandle& event) override {
    return StatusOf(::SetEvent(event.native()));
  }

  WaitOutcome Wait(const KernelHandle& object, std::uint32_t milliseconds) override {
    return OutcomeOf(::WaitForSingleObject(object.native(), milliseconds));
  }

  WaitOutcome WaitAny(const std::vector<const KernelHandle*>& objects,
                      std::uint32_t milliseconds) override {
    std::array<HANDLE, MAXIMUM_WAIT_OBJECTS> handles{};
    if (objects.size() > handles.size()) {
      return {kWaitFailed, ERROR_INVALID_PARAMETER};
    }
    for (std::size_t index = 0; index < objects.size(); ++index) {
      handles[index] = objects[index]->native();
    }
    return OutcomeOf(::WaitForMultipleObjects(static_cast<DWORD>(objects.size()), handles.data(),
                                              FALSE, milliseconds));
  }

  Status ReleaseMutex(const KernelHandle& mutex) override {
    return StatusOf(::ReleaseMutex(mutex.native()));
  }

  Status Close(KernelHandle& handle) override { return StatusOf(::CloseHandle(handle.Release())); }

 private:
  KernelHandle Own(HANDLE handle) {
    return handle != nullptr ? KernelHandle(this, handle) : KernelHandle();
  }

  Result<KernelHandle> Opened(HANDLE handle) {
    if (handle == nullptr) {
      return Result<KernelHandle>::Fail(::GetLastError());
    }
    return KernelHandle(this, handle);
  }
};

}  // namespace

KernelObjects& RealKernelObjects() {
  static NoDestructor<WindowsKernelObjects> objects;
  return *objects;
}

}  // namespace korvane::platform
