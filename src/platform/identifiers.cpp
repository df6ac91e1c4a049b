#include "platform/identifiers.h"

#include <cstdio>

namespace korvane::platform {

std::optional<std::string> Identifiers::FormatGuid(const Guid& guid) {
  constexpr std::size_t kTextLength = 38;
  std::array<char, kTextLength + 1> text{};
  const auto& tail = guid.data4;
  const int length =
      std::snprintf(text.data(), text.size(), "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                    guid.data1, guid.data2, guid.data3, tail[0], tail[1], tail[2], tail[3], tail[4],
                    tail[5], tail[6], tail[7]);
  if (length != kTextLength) {  // coverage: the format gives each number its full width
    return std::nullopt;
  }
  return std::string(text.data(), kTextLength);
}

}  // namespace korvane::platform
