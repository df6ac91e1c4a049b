#include "support/fake_clock.h"

namespace korvane::test {

void FakeClock::Advance(std::int64_t milliseconds) {
  MutexLock lock(mutex_);
  steady_nanoseconds_ += milliseconds * 1'000'000;
  unix_milliseconds_ += milliseconds;
}

std::vector<std::uint32_t> FakeClock::waits() {
  MutexLock lock(mutex_);
  return waits_;
}

std::int64_t FakeClock::SteadyNanoseconds() {
  MutexLock lock(mutex_);
  return steady_nanoseconds_;
}

std::int64_t FakeClock::UnixMilliseconds() {
  MutexLock lock(mutex_);
  return unix_milliseconds_;
}

void FakeClock::SleepMilliseconds(std::uint32_t milliseconds) {
  Advance(milliseconds);
  MutexLock lock(mutex_);
  waits_.push_back(milliseconds);
}

}  // namespace korvane::test
