// wait_deadline.h: the end of a wait of so many milliseconds, on the clock that never goes back.
#pragma once

#include <cstdint>
#include <ctime>

#include "platform/kernel_objects.h"

namespace korvane::platform {

class WaitDeadline {
 public:
  explicit WaitDeadline(std::uint32_t milliseconds) : endless_(milliseconds == kWaitForever) {
    clock_gettime(CLOCK_MONOTONIC, &end_);
    end_.tv_sec += milliseconds / 1000;
    end_.tv_nsec += static_cast<long>(milliseconds % 1000) * kNanosecondsPerMillisecond;
    if (end_.tv_nsec >= kNanosecondsPerSecond) {
      end_.tv_nsec -= kNanosecondsPerSecond;
      ++end_.tv_sec;
    }
  }

  bool endless() const { return endless_; }
  // Of an endless wait it means nothing.
  const timespec& end() const { return end_; }

  // What is left, down to 0. Precondition: not endless.
  timespec Left() const {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    timespec left{.tv_sec = end_.tv_sec - now.tv_sec, .tv_nsec = end_.tv_nsec - now.tv_nsec};
    if (left.tv_nsec < 0) {
      left.tv_nsec += kNanosecondsPerSecond;
      --left.tv_sec;
    }
    return left.tv_sec < 0 ? timespec{} : left;
  }

 private:
  static constexpr long kNanosecondsPerMillisecond = 1'000'000;
  static constexpr long kNanosecondsPerSecond = 1'000'000'000;

  bool endless_;
  timespec end_{};
};

}  // namespace korvane::platform
