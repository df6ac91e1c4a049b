// seed.h: where a test's random choices begin.
#pragma once

#include <cstdlib>
#include <string>

namespace korvane::test {

// The same in every run, so that a failure comes back; KORVANE_SEED sets another, to look further.
inline unsigned Seed() {
  const char* const given = std::getenv("KORVANE_SEED");
  return given != nullptr ? static_cast<unsigned>(std::stoul(given)) : 1;
}

}  // namespace korvane::test
