#include "host_heap.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::size_t SizeOf(void* memory) {
#ifdef _WIN32
  return _msize(memory);
#else
  return malloc_usable_size(memory);
#endif
}

std::atomic<std::size_t> held{0};

void* Counted(void* memory) {
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  held += SizeOf(memory);
  return memory;
}

void Release(void* memory) {
  held -= memory != nullptr ? SizeOf(memory) : 0;
  std::free(memory);
}

}  // namespace

void* operator new(std::size_t bytes) { return Counted(std::malloc(bytes)); }

void operator delete(void* memory) noexcept { Release(memory); }

void operator delete(void* memory, std::size_t) noexcept { Release(memory); }

namespace korvane::bench {

std::size_t HostHeapBytes() { return held; }

}  // namespace korvane::bench
