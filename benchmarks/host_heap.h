// host_heap.h: what `new` has given out and not got back, for a program whose shared libraries keep
// to a `new` of their own. Any thread.
#pragma once

#include <cstddef>

namespace korvane::bench {

std::size_t HostHeapBytes();

}  // namespace korvane::bench
