// fake_clock.h: clocks that move only when told. Any thread.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/clocks.h"
#include "platform/mutex.h"

namespace korvane::test {

class FakeClock : public platform::Clocks {
 public:
  // Both clocks begin here; the wall clock's default is 2024-01-02T03:04:05Z.
  explicit FakeClock(std::int64_t unix_milliseconds = 1'704'164'645'000)
      : unix_milliseconds_(unix_milliseconds) {}

  // Moves both clocks.
  void Advance(std::int64_t milliseconds) {
    MutexLock lock(mutex_);
    steady_nanoseconds_ += milliseconds * 1'000'000;
    unix_milliseconds_ += milliseconds;
  }

  // What was slept so far, in order.
  std::vector<std::uint32_t> waits() {
    MutexLock lock(mutex_);
    return waits_;
  }
  std::int64_t SteadyNanoseconds() override {
    MutexLock lock(mutex_);
    return steady_nanoseconds_;
  }
  std::int64_t UnixMilliseconds() override {
    MutexLock lock(mutex_);
    return unix_milliseconds_;
  }

  // Returns at once; the clocks have moved by the wait then.
  void SleepMilliseconds(std::uint32_t milliseconds) override {
    Advance(milliseconds);
    MutexLock lock(mutex_);
    waits_.push_back(milliseconds);
  }

 private:
  Mutex mutex_;
  std::int64_t steady_nanoseconds_ KORVANE_GUARDED_BY(mutex_) = 1'000'000'000;
  std::int64_t unix_milliseconds_ KORVANE_GUARDED_BY(mutex_);
  std::vector<std::uint32_t> waits_ KORVANE_GUARDED_BY(mutex_);
};

}  // namespace korvane::test
