// kernel_object.h: what stands behind a KernelHandle on Linux.
//
// Each open handle is one object of a class below: NamedMutex, NamedEvent, LaunchedProcess. The
// handle owns it.
#pragma once

#include <memory>

#include "platform/kernel_objects.h"
#include "platform/result.h"

namespace korvane::platform {

// The numbers of Windows, where callers or tests may tell them apart.
inline constexpr ErrorCode kErrorFileNotFound = 2;   // no object of that name
inline constexpr ErrorCode kErrorPathNotFound = 3;   // a name that can't be one
inline constexpr ErrorCode kErrorInvalidHandle = 6;  // none, or an object of another kind
inline constexpr ErrorCode kErrorNotOwner = 288;

class KernelObject {
 public:
  KernelObject() = default;
  virtual ~KernelObject() = default;
  KernelObject(const KernelObject&) = delete;
  KernelObject& operator=(const KernelObject&) = delete;

  // A descriptor that can be read from when the object may be signalled; -1 for an object that is
  // not waited for by descriptor.
  virtual int WaitDescriptor() const = 0;
  // Once it can be read from: whether the object is signalled still. Takes an event's signal.
  virtual bool TakeSignal() = 0;
};

inline KernelHandle MakeHandle(KernelObjects& owner, std::unique_ptr<KernelObject> object) {
  return {&owner, object.release()};
}

// Null for a handle that is none or of another kind.
template <typename T>
T* ObjectOf(const KernelHandle& handle) {
  return dynamic_cast<T*>(static_cast<KernelObject*>(handle.native()));
}

}  // namespace korvane::platform
