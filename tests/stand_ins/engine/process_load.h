// process_load.h: how much of the system this process holds, to see whether something leaks.
#pragma once

#include <cstddef>

namespace korvane::test {

// Grows with the open descriptors on Linux and the open handles on Windows.
std::size_t OpenHandles();
// Threads of this process.
std::size_t RunningThreads();

}  // namespace korvane::test
