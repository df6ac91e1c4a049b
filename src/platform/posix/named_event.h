// named_event.h: an auto-reset event that processes share by its name.
//
// The named pipe of its name: signalled while there is a byte in it, so that a wait can be for
// several of them and for processes at once. A wait takes all there is, a set event takes no second
// byte; both are what auto-reset means. Any thread.
#pragma once

#include <string>

#include "platform/kernel_objects.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/kernel_object.h"

namespace korvane::platform {

class NamedEvent final : public KernelObject {
 public:
  static Result<KernelHandle> Create(KernelObjects& owner, const std::wstring& name);
  static Result<KernelHandle> Open(KernelObjects& owner, const std::wstring& name);

  NamedEvent(std::string file_name, FileDescriptor pipe)
      : file_name_(std::move(file_name)), pipe_(std::move(pipe)) {}
  ~NamedEvent() override;

  Status Set();

  int WaitDescriptor() const override { return pipe_.get(); }
  bool TakeSignal() override;

 private:
  std::string file_name_;
  FileDescriptor pipe_;
};

}  // namespace korvane::platform
