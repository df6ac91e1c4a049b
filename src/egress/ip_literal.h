// ip_literal.h: numeric addresses, compared by their bytes.
//
// The system's own address readers differ (leading zeros, zones, mapped addresses), and what a
// configuration says must mean the same on every machine; so this one is written out. Pure.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace korvane {

struct IpLiteral {
  bool ok = false;
  std::int32_t family = 0;               // 4 or 6
  std::array<std::uint8_t, 16> bytes{};  // of family 4 the first four, zeroes behind

  // Two texts of one address are equal. An IPv4 address isn't equal to its mapped IPv6 form.
  friend bool operator==(const IpLiteral&, const IpLiteral&) = default;
};

// Reads an address, with or without square brackets; a zone ("%eth0") is dropped. `ok` is false and
// the rest zero for anything else.
//
//   IPv4: four fields of one to three digits, up to 255 each, whatever zeros lead.
//   IPv6: groups of one to four hexadecimal digits, at most one "::", and an IPv4 tail as the last
//         two groups. Eight groups, or at most seven with "::".
IpLiteral ParseIpLiteral(std::string_view text);

}  // namespace korvane
