#include "egress/ip_literal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace korvane {
namespace {

// The bytes as hexadecimal digits, "" for no address.
std::string Read(std::string_view text) {
  const IpLiteral literal = ParseIpLiteral(text);
  if (!literal.ok) {
    EXPECT_EQ(literal, IpLiteral{}) << text;
    return "";
  }
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string digits;
  for (const std::uint8_t byte : literal.bytes) {
    digits += kDigits[byte >> 4];
    digits += kDigits[byte & 15];
  }
  return literal.family == 4 ? digits.substr(0, 8) : digits;
}

TEST(IpLiteralTest, ReadsNumericAddresses) {
  struct Case {
    const char* text;
    const char* bytes;
  };
  constexpr Case kCases[] = {
      {"1.2.3.4", "01020304"},
      {"255.255.255.255", "ffffffff"},
      {"001.020.000.009", "01140009"},  // decimal, whatever zeros lead
      {"[1.2.3.4]", "01020304"},
      {"1.2.3.4%eth0", "01020304"},
      {"::", "00000000000000000000000000000000"},
      {"::1", "00000000000000000000000000000001"},
      {"[::1]", "00000000000000000000000000000001"},
      {"1::", "00010000000000000000000000000000"},
      {"fe80::1%12", "fe800000000000000000000000000001"},
      {"[fe80::1%eth0]", "fe800000000000000000000000000001"},
      {"[fe80::1%a]b]", "fe800000000000000000000000000001"},
      {"1:2:3:4:5:6:7:8", "00010002000300040005000600070008"},
      {"1:2:3:4:5:6:7::", "00010002000300040005000600070000"},
      {"::2:3:4:5:6:7:8", "00000002000300040005000600070008"},
      {"1:2:3::5:6:7:8", "00010002000300000005000600070008"},
      {"ABCD:ef01::", "abcdef01000000000000000000000000"},
      {"::ffff:1.2.3.4", "00000000000000000000ffff01020304"},
      {"::1.2.3.4", "00000000000000000000000001020304"},
      {"1:2:3:4:5:6:1.2.3.4", "00010002000300040005000601020304"},
      {"1::5:6:1.2.3.4", "00010000000000000005000601020304"},
  };
  for (const Case& each : kCases) {
    EXPECT_EQ(Read(each.text), each.bytes) << each.text;
  }
}

TEST(IpLiteralTest, RefusesEverythingElse) {
  constexpr const char* kCases[] = {
      "", "[]", "[", "%eth0", "[%1]", "localhost", "example.org", "1.2.3", "1.2.3.", ".1.2.3",
      "1.2.3.4.5", "1..2.3", "1.2.3.256", "1.2.3.0004", "1.2.3.-4", "1.2.3.+4", " 1.2.3.4",
      "1.2.3.4 ", "1.2.3.0x4", "1.2.3.4:80", "[1.2.3.4", "1.2.3.4]", "[[::1]]", "[::1]:443",
      // IPv6
      ":", ":::", "1:::2", "1::2::3", ":1::2", "1::2:", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8:9",
      "1:2:3:4:5:6:7:8:", "1:2:3:4:5:6:7:8:1.2.3.4", ":1:2:3:4:5:6:7:8", "1:2:3:4::5:6:7:8",
      "::1:2:3:4:5:6:7:8", "12345::", "g::", "::-1", "1:2:3:4:5:6:7:1.2.3.4",
      "1:2:3:4:5:6:7.8.9.10:1", "1.2.3.4::", "::1.2.3.4:5", "::1.2.3", "::1.2.3.256",
      "1::3:4:5:6:7:1.2.3.4", "::0x1"};
  for (const char* text : kCases) {
    EXPECT_EQ(Read(text), "") << text;
  }
}

TEST(IpLiteralTest, ComparesFamilyAndBytes) {
  EXPECT_EQ(ParseIpLiteral("2001:DB8::1"), ParseIpLiteral("[2001:0db8:0:0::0001%3]"));
  EXPECT_NE(ParseIpLiteral("1.2.3.4"), ParseIpLiteral("::ffff:1.2.3.4"));
  EXPECT_NE(ParseIpLiteral("0.0.0.0"), ParseIpLiteral("::"));
}

}  // namespace
}  // namespace korvane
