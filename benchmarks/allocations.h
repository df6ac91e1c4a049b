// allocations.h: what `new` takes in a benchmark program, which replaces it by one that counts.
// For one thread; what a library takes from malloc by itself isn't seen.
#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>

namespace korvane::bench {

// Counts from its making on.
class AllocationCount {
 public:
  AllocationCount();

  std::size_t Made() const;
  // The most bytes that were held at once, above what was held at the beginning.
  std::size_t PeakBytes() const;
  double PerIteration(const benchmark::State& state) const;

 private:
  std::size_t made_before_;
  std::size_t held_before_;
};

}  // namespace korvane::bench
