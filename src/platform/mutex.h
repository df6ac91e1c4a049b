// mutex.h: locks whose guards and order the compiler checks.
//
// Thin wraps of the standard library's mutexes that carry clang's thread-safety annotations; other
// compilers see plain locks. Members name their lock with KORVANE_GUARDED_BY, functions that need
// one held say KORVANE_REQUIRES, and the clang build turns a violation into an error.
#pragma once

#include <mutex>

#if defined(__clang__)
#define KORVANE_TSA(x) __attribute__((x))
#else
#define KORVANE_TSA(x)
#endif

#define KORVANE_CAPABILITY(name) KORVANE_TSA(capability(name))
#define KORVANE_SCOPED_CAPABILITY KORVANE_TSA(scoped_lockable)
#define KORVANE_GUARDED_BY(lock) KORVANE_TSA(guarded_by(lock))
#define KORVANE_REQUIRES(...) KORVANE_TSA(requires_capability(__VA_ARGS__))
#define KORVANE_EXCLUDES(...) KORVANE_TSA(locks_excluded(__VA_ARGS__))
#define KORVANE_ACQUIRE(...) KORVANE_TSA(acquire_capability(__VA_ARGS__))
#define KORVANE_RELEASE(...) KORVANE_TSA(release_capability(__VA_ARGS__))
#define KORVANE_ACQUIRED_BEFORE(...) KORVANE_TSA(acquired_before(__VA_ARGS__))
#define KORVANE_ACQUIRED_AFTER(...) KORVANE_TSA(acquired_after(__VA_ARGS__))
#define KORVANE_NO_THREAD_SAFETY_ANALYSIS KORVANE_TSA(no_thread_safety_analysis)

namespace korvane {

// A plain lock; taking it twice on one thread is an error.
class KORVANE_CAPABILITY("mutex") Mutex {
 public:
  void lock() KORVANE_ACQUIRE() { mutex_.lock(); }
  void unlock() KORVANE_RELEASE() { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

// A lock that admits the same thread again.
class KORVANE_CAPABILITY("mutex") RecursiveMutex {
 public:
  void lock() KORVANE_ACQUIRE() { mutex_.lock(); }
  void unlock() KORVANE_RELEASE() { mutex_.unlock(); }

 private:
  std::recursive_mutex mutex_;
};

// Holds a lock for a scope.
template <typename M>
class KORVANE_SCOPED_CAPABILITY BasicLock {
 public:
  explicit BasicLock(M& mutex) KORVANE_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~BasicLock() KORVANE_RELEASE() { mutex_.unlock(); }
  BasicLock(const BasicLock&) = delete;
  BasicLock& operator=(const BasicLock&) = delete;

 private:
  M& mutex_;
};

using MutexLock = BasicLock<Mutex>;
using RecursiveMutexLock = BasicLock<RecursiveMutex>;

}  // namespace korvane
