// deadline.h: the point in time at which a wait gives up.
#pragma once

#include <chrono>
#include <limits>
#include <optional>

namespace korvane::net {

// A value; any thread. On the steady clock.
class Deadline {
 public:
  static Deadline Never() { return Deadline(std::nullopt); }
  // A negative time has passed already.
  static Deadline In(std::chrono::milliseconds time) { return Deadline(Clock::now() + time); }

  bool passed() const { return end_ && Clock::now() >= *end_; }

  // Milliseconds that are left, rounded up so that a wait of this length reaches the deadline; -1
  // for never.
  int RemainingMs() const {
    if (!end_) {
      return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*end_ - Clock::now()).count();
    if (left <= 0) {
      return 0;
    }
    constexpr int kMost = std::numeric_limits<int>::max();
    return left > kMost ? kMost : static_cast<int>(left);
  }

 private:
  using Clock = std::chrono::steady_clock;

  explicit Deadline(std::optional<Clock::time_point> end) : end_(end) {}

  std::optional<Clock::time_point> end_;
};

}  // namespace korvane::net
