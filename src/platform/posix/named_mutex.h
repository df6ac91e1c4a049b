// named_mutex.h: a mutex that processes share by its name.
//
// A robust, recursive pthread mutex in the mapped file of its name. Its owner is a thread; when
// that ends without a release, killed or not, the next to get the mutex is told so. Any thread.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "platform/kernel_objects.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/kernel_object.h"

namespace korvane::platform {

// The mutex's memory, one mapping for all handles of this process.
class SharedMutex {
 public:
  // The mapping of an open file, made if this process has none.
  static Result<std::shared_ptr<SharedMutex>> Of(const FileDescriptor& file);

  explicit SharedMutex(pthread_mutex_t* mutex) : mutex_(mutex) {}
  // Unmaps, unless a thread of this process owns the mutex still: the thread's list of what it
  // leaves to others leads through this memory. Then it stays for the life of the process.
  ~SharedMutex();
  SharedMutex(const SharedMutex&) = delete;
  SharedMutex& operator=(const SharedMutex&) = delete;

  // Makes the mutex in a new file. The folder's lock must be held.
  Status Initialise();
  WaitOutcome Wait(std::uint32_t milliseconds);
  Status Release();

 private:
  int Acquire(std::uint32_t milliseconds);
  void NoteAcquisition(bool abandoned);
  void NoteRelease();

  pthread_mutex_t* mutex_;
  // What this process knows of its own ownership: the thread and its acquisitions. Written by the
  // owner alone. A thread that died as the owner stays noted here until the next of this process.
  std::atomic<std::thread::id> owner_{};
  std::atomic<int> held_{0};
};

class NamedMutex final : public KernelObject {
 public:
  static CreatedMutex Create(KernelObjects& owner, const std::wstring& name, bool initially_owned);

  NamedMutex(std::string file_name, FileDescriptor file, std::shared_ptr<SharedMutex> mutex)
      : file_name_(std::move(file_name)), file_(std::move(file)), mutex_(std::move(mutex)) {}
  ~NamedMutex() override;

  SharedMutex& mutex() { return *mutex_; }

  int WaitDescriptor() const override { return -1; }
  bool TakeSignal() override { return false; }

 private:
  std::string file_name_;
  FileDescriptor file_;
  std::shared_ptr<SharedMutex> mutex_;
};

}  // namespace korvane::platform
