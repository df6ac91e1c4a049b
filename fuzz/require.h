// require.h: what a fuzzer demands of the code under test; a broken demand is a finding.
#pragma once

#include <cstdlib>

namespace korvane::fuzz {

inline void Require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

}  // namespace korvane::fuzz
