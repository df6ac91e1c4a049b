// kernel_objects.h: named mutexes and events, shared with other processes of the same user.
//
// All objects are made with default security. A name begins with "Local\" or "Global\".
// Linux: a named mutex is a robust mutex in a shared memory file of the user's runtime folder (a
// dead owner gives "abandoned"); a named event is a named pipe there, signalled while there is a
// byte in it.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "platform/result.h"

namespace korvane::platform {

class KernelObjects;

// Owns one open handle. Closed by KernelObjects::Close, or silently by the destructor.
class KernelHandle {
 public:
  KernelHandle() = default;
  // For the layer's own sides: takes ownership of a native handle.
  KernelHandle(KernelObjects* owner, void* native) : owner_(owner), native_(native) {}
  ~KernelHandle() { Reset(); }
  KernelHandle(KernelHandle&& other) noexcept
      : owner_(std::exchange(other.owner_, nullptr)),
        native_(std::exchange(other.native_, nullptr)) {}
  KernelHandle& operator=(KernelHandle&& other) noexcept {
    if (this != &other) {
      Reset();
      owner_ = std::exchange(other.owner_, nullptr);
      native_ = std::exchange(other.native_, nullptr);
    }
    return *this;
  }

  explicit operator bool() const { return native_ != nullptr; }
  void* native() const { return native_; }
  // Gives the native handle up without closing it.
  void* Release() {
    owner_ = nullptr;
    return std::exchange(native_, nullptr);
  }
  void Reset();

 private:
  KernelObjects* owner_ = nullptr;
  void* native_ = nullptr;
};

// The four results of a wait that callers tell apart, and whatever else the system may give.
inline constexpr std::uint32_t kWaitSignalled = 0;
inline constexpr std::uint32_t kWaitAbandoned = 0x80;
inline constexpr std::uint32_t kWaitTimeout = 0x102;
inline constexpr std::uint32_t kWaitFailed = 0xFFFFFFFF;
inline constexpr std::uint32_t kWaitForever = 0xFFFFFFFF;

struct WaitOutcome {
  std::uint32_t result = kWaitFailed;
  ErrorCode error = 0;  // the last error, where the result is kWaitFailed
};

struct CreatedMutex {
  KernelHandle handle;  // none on failure
  ErrorCode code = 0;   // the last error after the call: kErrorAlreadyExists, 0, or the failure
};

class KernelObjects {
 public:
  virtual ~KernelObjects() = default;

  // CreateMutexW(nullptr, initially_owned, name). On an existing mutex the flag has no effect.
  virtual CreatedMutex CreateNamedMutex(const std::wstring& name, bool initially_owned) = 0;

  // CreateEventW(nullptr, FALSE, FALSE, name): auto-reset, not signalled.
  virtual Result<KernelHandle> CreateNamedEvent(const std::wstring& name) = 0;

  // OpenEventW(EVENT_MODIFY_STATE, FALSE, name). An absent name is error 2 on both systems.
  virtual Result<KernelHandle> OpenNamedEvent(const std::wstring& name) = 0;
  virtual Status SetEvent(const KernelHandle& event) = 0;

  // WaitForSingleObject. A mutex is then owned by the calling thread (0, 0x80).
  virtual WaitOutcome Wait(const KernelHandle& object, std::uint32_t milliseconds) = 0;

  // WaitForMultipleObjects for any of them; the result is the index of the first that is signalled.
  // Events and processes (Elevation::LaunchElevated) only.
  virtual WaitOutcome WaitAny(const std::vector<const KernelHandle*>& objects,
                              std::uint32_t milliseconds) = 0;

  // ReleaseMutex. Error 288 (not the owner) when another thread owns it, on both systems.
  virtual Status ReleaseMutex(const KernelHandle& mutex) = 0;

  // CloseHandle; the handle is none afterwards, whatever the result.
  virtual Status Close(KernelHandle& handle) = 0;
};

inline void KernelHandle::Reset() {
  if (native_ != nullptr && owner_ != nullptr) {
    static_cast<void>(owner_->Close(*this));
  }
  owner_ = nullptr;
  native_ = nullptr;
}

}  // namespace korvane::platform
