// json.h: the JSON of the console's lines. Objects keep the order in which they were written, so
// that a map's order on the wire can be seen.
#pragma once

#include <cstdint>
#include <vector>

#include <nlohmann/json.hpp>

namespace korvane::stand_in {

using Json = nlohmann::ordered_json;
using Bytes = std::vector<std::uint8_t>;

}  // namespace korvane::stand_in
