// turns.h: how often a wish of the stand-in's options is still to be granted.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "engine/json_node.h"

namespace korvane::stand_in {

// Counts calls down; without a count every call has its turn. Copies share the count. Any thread.
class Turns {
 public:
  Turns() = default;
  // From the member "times" of an object: the first so many calls.
  static Turns Read(const JsonNode& node) {
    Turns turns;
    if (const auto times = node.Find("times")) {
      turns.left_ = std::make_shared<std::atomic<std::int64_t>>(times->Integer(0, INT32_MAX));
    }
    return turns;
  }

  bool Take() const { return !left_ || left_->fetch_sub(1, std::memory_order_relaxed) > 0; }

 private:
  std::shared_ptr<std::atomic<std::int64_t>> left_;
};

}  // namespace korvane::stand_in
