#include "allocations.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t made = 0;
thread_local std::size_t held = 0;
thread_local std::size_t peak = 0;

void* Counted(void* memory) {
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  ++made;
  held += malloc_usable_size(memory);
  peak = std::max(peak, held);
  return memory;
}

void Release(void* memory) {
  held -= memory != nullptr ? malloc_usable_size(memory) : 0;
  std::free(memory);
}

}  // namespace

void* operator new(std::size_t bytes) { return Counted(std::malloc(bytes)); }

void* operator new(std::size_t bytes, std::align_val_t alignment) {
  const auto unit = static_cast<std::size_t>(alignment);
  return Counted(std::aligned_alloc(unit, (bytes + unit - 1) / unit * unit));
}

void operator delete(void* memory) noexcept { Release(memory); }

void operator delete(void* memory, std::size_t) noexcept { Release(memory); }

void operator delete(void* memory, std::align_val_t) noexcept { Release(memory); }

void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { Release(memory); }

namespace korvane::bench {

AllocationCount::AllocationCount() : made_before_(made), held_before_(held) { peak = held; }

std::size_t AllocationCount::Made() const { return made - made_before_; }

std::size_t AllocationCount::PeakBytes() const { return peak - held_before_; }

double AllocationCount::PerIteration(const benchmark::State& state) const {
  return static_cast<double>(Made()) / static_cast<double>(state.iterations());
}

}  // namespace korvane::bench
