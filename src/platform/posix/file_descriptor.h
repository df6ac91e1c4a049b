// file_descriptor.h: owns a descriptor of the POSIX side.
#pragma once

#include <unistd.h>

#include <utility>

namespace korvane::platform {

class FileDescriptor {
 public:
  FileDescriptor() = default;
  // Takes ownership; -1 is none.
  explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
  ~FileDescriptor() { Reset(); }
  FileDescriptor(FileDescriptor&& other) noexcept
      : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
      Reset();
      descriptor_ = std::exchange(other.descriptor_, -1);
    }
    return *this;
  }

  explicit operator bool() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }
  void Reset() {
    if (descriptor_ >= 0) {
      close(descriptor_);
    }
    descriptor_ = -1;
  }

 private:
  int descriptor_ = -1;
};

}  // namespace korvane::platform
