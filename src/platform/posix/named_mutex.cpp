#include "platform/posix/named_mutex.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <utility>

#include "platform/mutex.h"
#include "platform/no_destructor.h"
#include "platform/posix/object_folder.h"
#include "platform/posix/wait_deadline.h"

#if defined(__SANITIZE_THREAD__)
#define KORVANE_THREAD_SANITIZER
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KORVANE_THREAD_SANITIZER
#endif
#endif

#ifdef KORVANE_THREAD_SANITIZER
#include <sanitizer/tsan_interface.h>
#endif

namespace korvane::platform {

namespace {

ErrorCode LastError() { return static_cast<ErrorCode>(errno); }

#ifdef KORVANE_THREAD_SANITIZER
// The thread sanitizer knows every call of a mutex but this one.
int LockUntil(pthread_mutex_t* mutex, const timespec& end) {
  constexpr unsigned kFlags = __tsan_mutex_write_reentrant | __tsan_mutex_try_lock;
  __tsan_mutex_pre_lock(mutex, kFlags);
  const int error = pthread_mutex_clocklock(mutex, CLOCK_MONOTONIC, &end);
  const bool locked = error == 0 || error == EOWNERDEAD;
  __tsan_mutex_post_lock(mutex, locked ? kFlags : kFlags | __tsan_mutex_try_lock_failed, 0);
  return error;
}
#else
int LockUntil(pthread_mutex_t* mutex, const timespec& end) {
  return pthread_mutex_clocklock(mutex, CLOCK_MONOTONIC, &end);
}
#endif

// The mappings of this process, by file: two handles of one name are one mutex.
class MappingTable {
 public:
  static MappingTable& Instance() {
    static NoDestructor<MappingTable> table;
    return *table;
  }

  Result<std::shared_ptr<SharedMutex>> Find(const FileDescriptor& file) KORVANE_EXCLUDES(mutex_) {
    struct stat status {};
    if (fstat(file.get(), &status) != 0) {
      return Result<std::shared_ptr<SharedMutex>>::Fail(LastError());
    }
    const MutexLock lock(mutex_);
    std::erase_if(mappings_, [](const auto& entry) { return entry.second.expired(); });
    std::weak_ptr<SharedMutex>& known = mappings_[{status.st_dev, status.st_ino}];
    std::shared_ptr<SharedMutex> mapping = known.lock();
    if (mapping == nullptr) {
      void* memory =
          mmap(nullptr, sizeof(pthread_mutex_t), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
      if (memory == MAP_FAILED) {
        return Result<std::shared_ptr<SharedMutex>>::Fail(LastError());
      }
      mapping = std::make_shared<SharedMutex>(static_cast<pthread_mutex_t*>(memory));
      known = mapping;
    }
    return mapping;
  }

 private:
  Mutex mutex_;
  std::map<std::pair<dev_t, ino_t>, std::weak_ptr<SharedMutex>> mappings_
      KORVANE_GUARDED_BY(mutex_);
};

struct OpenedMutex {
  FileDescriptor file;
  std::shared_ptr<SharedMutex> mutex;
  bool existed = false;
};

Result<OpenedMutex> OpenOrMake(ObjectFolder& folder, const std::string& file_name) {
  using Opened = Result<OpenedMutex>;
  Result<FileDescriptor> file = folder.Open(file_name, S_IFREG);
  const bool existed = file.ok();
  if (!existed && file.error() == kErrorFileNotFound) {
    file = folder.Make(file_name, S_IFREG);
  }
  if (!file) {
    return Opened::Fail(file.error());
  }
  if (!existed && ftruncate(file.value().get(), sizeof(pthread_mutex_t)) != 0) {
    return Opened::Fail(LastError());
  }
  Result<std::shared_ptr<SharedMutex>> mutex = SharedMutex::Of(file.value());
  if (!mutex) {
    return Opened::Fail(mutex.error());
  }
  const Status ready = existed ? Status::Ok() : mutex.value()->Initialise();
  return ready ? Opened({file.take(), mutex.take(), existed}) : Opened::Fail(ready.error());
}

}  // namespace

Result<std::shared_ptr<SharedMutex>> SharedMutex::Of(const FileDescriptor& file) {
  return MappingTable::Instance().Find(file);
}

SharedMutex::~SharedMutex() {
  if (held_ == 0) {
    munmap(mutex_, sizeof(*mutex_));
  }
}

Status SharedMutex::Initialise() {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
  pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  const int error = pthread_mutex_init(mutex_, &attributes);
  pthread_mutexattr_destroy(&attributes);
  return error == 0 ? Status::Ok() : Status::Fail(static_cast<ErrorCode>(error));
}

int SharedMutex::Acquire(std::uint32_t milliseconds) {
  const int error = pthread_mutex_trylock(mutex_);
  if (error != EBUSY || milliseconds == 0) {
    return error;
  }
  const WaitDeadline deadline(milliseconds);
  return deadline.endless() ? pthread_mutex_lock(mutex_) : LockUntil(mutex_, deadline.end());
}

WaitOutcome SharedMutex::Wait(std::uint32_t milliseconds) {
  const int error = Acquire(milliseconds);
  if (error == EBUSY || error == ETIMEDOUT) {
    return {kWaitTimeout, 0};
  }
  if (error != 0 && error != EOWNERDEAD) {
    return {kWaitFailed, static_cast<ErrorCode>(error)};
  }
  NoteAcquisition(error == EOWNERDEAD);
  if (error == EOWNERDEAD) {
    pthread_mutex_consistent(mutex_);
    return {kWaitAbandoned, 0};
  }
  return {kWaitSignalled, 0};
}

void SharedMutex::NoteAcquisition(bool abandoned) {
  const std::thread::id thread = std::this_thread::get_id();
  const bool again = owner_ == thread && !abandoned;
  owner_ = thread;
  held_ = again ? held_ + 1 : 1;
}

void SharedMutex::NoteRelease() {
  if (--held_ == 0) {
    owner_ = std::thread::id();
  }
}

Status SharedMutex::Release() {
  if (owner_ != std::this_thread::get_id()) {
    return Status::Fail(kErrorNotOwner);
  }
  NoteRelease();  // first: afterwards somebody else may own it
  return pthread_mutex_unlock(mutex_) == 0 ? Status::Ok() : Status::Fail(kErrorNotOwner);
}

CreatedMutex NamedMutex::Create(KernelObjects& owner, const std::wstring& name,
                                bool initially_owned) {
  Result<std::string> file_name = ObjectFileName(name);
  if (!file_name) {
    return {{}, file_name.error()};
  }
  Result<ObjectFolder> folder = ObjectFolder::Enter();
  if (!folder) {
    return {{}, folder.error()};
  }
  Result<OpenedMutex> opened = OpenOrMake(folder.value(), file_name.value());
  if (!opened) {
    return {{}, opened.error()};
  }
  auto& [file, mutex, existed] = opened.value();
  if (initially_owned && !existed) {
    mutex->Wait(0);  // nobody else can have it yet
  }
  auto object = std::make_unique<NamedMutex>(file_name.take(), std::move(file), std::move(mutex));
  return {MakeHandle(owner, std::move(object)), existed ? kErrorAlreadyExists : 0};
  // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): the handle owns the object
}

NamedMutex::~NamedMutex() {
  if (Result<ObjectFolder> folder = ObjectFolder::Enter()) {
    folder.value().Forget(file_name_, file_);
  }
}

}  // namespace korvane::platform
