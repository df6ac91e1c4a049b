#include "stand_ins/engine/process_load.h"

#include <filesystem>
#include <iterator>

namespace korvane::test {
namespace {

std::size_t EntriesOf(const char* folder) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

}  // namespace

std::size_t OpenHandles() { return EntriesOf("/proc/self/fd"); }

std::size_t RunningThreads() { return EntriesOf("/proc/self/task"); }

}  // namespace korvane::test
