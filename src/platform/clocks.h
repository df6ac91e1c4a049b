// clocks.h: the two clocks and the fixed waits.
//
// Any thread. Tests put a clock in force that moves only when told, so no test sleeps.
#pragma once

#include <cstdint>

namespace korvane::platform {

class Clocks {
 public:
  virtual ~Clocks() = default;

  // Nanoseconds on a clock that never goes back; its zero is the system's own business.
  virtual std::int64_t SteadyNanoseconds() = 0;

  // Milliseconds since the Unix epoch, on the wall clock.
  virtual std::int64_t UnixMilliseconds() = 0;

  // Blocks the calling thread.
  virtual void SleepMilliseconds(std::uint32_t milliseconds) = 0;
};

}  // namespace korvane::platform
