// failing_os.h: the real files and kernel objects, and what the tests put in their way.
//
// A step named in `failures` fails with its error. Steps are named by their operations, letter for
// letter. What a test sets, it sets before other threads write.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/mutex.h"
#include "platform/os.h"

namespace korvane::test {

class Failures {
 public:
  void Set(const std::string& operation, platform::ErrorCode error) { errors_[operation] = error; }
  void Clear() { errors_.clear(); }

  std::optional<platform::ErrorCode> Of(const std::string& operation) const {
    const auto found = errors_.find(operation);
    return found != errors_.end() ? std::optional(found->second) : std::nullopt;
  }

 private:
  std::map<std::string, platform::ErrorCode> errors_;
};

class FailingFiles : public platform::Files {
 public:
  Failures failures;
  std::optional<std::size_t> short_write;  // bytes that the next writes take
  std::function<void()> before_write;

  // The steps on an open log so far, in order.
  std::vector<std::string> calls() {
    MutexLock lock(mutex_);
    return calls_;
  }

  platform::Result<platform::File> Open(const std::filesystem::path& path,
                                        platform::OpenMode mode) override {
    if (const auto error = failures.Of("Open")) {
      return platform::Result<platform::File>::Fail(*error);
    }
    return real_.Open(path, mode);
  }
  platform::Result<std::size_t> Write(platform::File& file, std::string_view bytes) override {
    Note("Write");
    if (before_write) {
      before_write();
    }
    if (const auto error = failures.Of("Write")) {
      return platform::Result<std::size_t>::Fail(*error);
    }
    return real_.Write(file, bytes.substr(0, short_write.value_or(bytes.size())));
  }
  platform::Result<std::uint64_t> Size(platform::File& file) override {
    Note("Size");
    if (const auto error = failures.Of("Size")) {
      return platform::Result<std::uint64_t>::Fail(*error);
    }
    return real_.Size(file);
  }
  platform::Status SeekToStart(platform::File& file) override {
    Note("SeekToStart");
    return Unless("SeekToStart", [&] { return real_.SeekToStart(file); });
  }
  platform::Status TruncateHere(platform::File& file) override {
    Note("TruncateHere");
    return Unless("TruncateHere", [&] { return real_.TruncateHere(file); });
  }
  platform::Status Copy(const std::filesystem::path& from,
                        const std::filesystem::path& to) override {
    Note("Copy");
    return Unless("Copy", [&] { return real_.Copy(from, to); });
  }
  platform::Status Close(platform::File& file) override {
    const platform::Status closed = real_.Close(file);
    return Unless("CloseFile", [&] { return closed; });
  }
  platform::Result<bool> CreateDirectories(const std::filesystem::path& path) override {
    if (const auto error = failures.Of("CreateDirectories")) {
      return platform::Result<bool>::Fail(*error);
    }
    return real_.CreateDirectories(path);
  }

  platform::Result<std::string> Read(platform::File& file, std::uint64_t max_bytes) override {
    return real_.Read(file, max_bytes);
  }
  platform::Status Flush(platform::File& file) override { return real_.Flush(file); }
  platform::Result<platform::EntryKind> Inspect(const std::filesystem::path& path) override {
    return real_.Inspect(path);
  }
  platform::Result<std::uint64_t> SizeOf(const std::filesystem::path& path) override {
    return real_.SizeOf(path);
  }
  platform::Result<std::int64_t> ModifiedAt(const std::filesystem::path& path) override {
    return real_.ModifiedAt(path);
  }
  platform::Status Rename(const std::filesystem::path& from,
                          const std::filesystem::path& to) override {
    return real_.Rename(from, to);
  }
  platform::Status RemoveFile(const std::filesystem::path& path) override {
    return real_.RemoveFile(path);
  }
  platform::Status RemoveDirectory(const std::filesystem::path& path) override {
    return real_.RemoveDirectory(path);
  }
  platform::Result<std::vector<platform::DirectoryEntry>> List(
      const std::filesystem::path& path) override {
    return real_.List(path);
  }
  bool IsNotFound(platform::ErrorCode error) override { return real_.IsNotFound(error); }

 private:
  void Note(const char* call) {
    MutexLock lock(mutex_);
    calls_.emplace_back(call);
  }

  template <typename Step>
  platform::Status Unless(const std::string& operation, const Step& step) {
    const auto error = failures.Of(operation);
    return error ? platform::Status::Fail(*error) : step();
  }

  platform::Files& real_ = *platform::RealOs().files;
  Mutex mutex_;
  std::vector<std::string> calls_ KORVANE_GUARDED_BY(mutex_);
};

class FailingKernelObjects : public platform::KernelObjects {
 public:
  // The suffix keeps the mutex apart from those of other tests that run at the same time.
  explicit FailingKernelObjects(std::wstring suffix) : suffix_(std::move(suffix)) {}

  Failures failures;
  std::optional<std::uint32_t>
      wait_result;  // of the next waits; only an abandoned one gives owning

  // The names of the mutexes, the bounds of the waits, and the releases so far.
  std::vector<std::wstring> mutex_names() {
    MutexLock lock(mutex_);
    return mutex_names_;
  }
  std::vector<std::uint32_t> wait_bounds() {
    MutexLock lock(mutex_);
    return wait_bounds_;
  }
  int releases() {
    MutexLock lock(mutex_);
    return releases_;
  }

  platform::CreatedMutex CreateNamedMutex(const std::wstring& name, bool initially_owned) override {
    {
      MutexLock lock(mutex_);
      mutex_names_.push_back(name);
    }
    if (const auto error = failures.Of("CreateNamedMutex")) {
      return {.handle = {}, .code = *error};
    }
    return real_.CreateNamedMutex(name + suffix_, initially_owned);
  }
  platform::WaitOutcome Wait(const platform::KernelHandle& object,
                             std::uint32_t milliseconds) override {
    {
      MutexLock lock(mutex_);
      wait_bounds_.push_back(milliseconds);
    }
    if (const auto error = failures.Of("Wait")) {
      return {.result = platform::kWaitFailed, .error = *error};
    }
    if (wait_result && *wait_result != platform::kWaitAbandoned) {
      return {.result = *wait_result, .error = 0};
    }
    // No test depends on how long the machine takes: the bound is asserted, not waited for.
    const platform::WaitOutcome outcome = real_.Wait(object, platform::kWaitForever);
    return {.result = wait_result.value_or(outcome.result), .error = outcome.error};
  }
  platform::Status ReleaseMutex(const platform::KernelHandle& mutex) override {
    {
      MutexLock lock(mutex_);
      ++releases_;
    }
    const platform::Status released = real_.ReleaseMutex(mutex);
    const auto error = failures.Of("ReleaseMutex");
    return error ? platform::Status::Fail(*error) : released;
  }
  platform::Status Close(platform::KernelHandle& handle) override {
    const platform::Status closed = real_.Close(handle);
    const auto error = failures.Of("CloseMutex");
    return error ? platform::Status::Fail(*error) : closed;
  }

  platform::Result<platform::KernelHandle> CreateNamedEvent(const std::wstring& name) override {
    return real_.CreateNamedEvent(name);
  }
  platform::Result<platform::KernelHandle> OpenNamedEvent(const std::wstring& name) override {
    return real_.OpenNamedEvent(name);
  }
  platform::Status SetEvent(const platform::KernelHandle& event) override {
    return real_.SetEvent(event);
  }
  platform::WaitOutcome WaitAny(const std::vector<const platform::KernelHandle*>& objects,
                                std::uint32_t milliseconds) override {
    return real_.WaitAny(objects, milliseconds);
  }

 private:
  platform::KernelObjects& real_ = *platform::RealOs().kernel_objects;
  std::wstring suffix_;
  Mutex mutex_;
  std::vector<std::wstring> mutex_names_ KORVANE_GUARDED_BY(mutex_);
  std::vector<std::uint32_t> wait_bounds_ KORVANE_GUARDED_BY(mutex_);
  int releases_ KORVANE_GUARDED_BY(mutex_) = 0;
};

}  // namespace korvane::test
