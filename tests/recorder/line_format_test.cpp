#include "recorder/line_format.h"

#include <gtest/gtest.h>

#include <limits>

namespace korvane {
namespace {

using flutter::EncodableList;
using flutter::EncodableMap;
using flutter::EncodableValue;

constexpr char kUnsupported[] = R"({"recorder_failure":"serialization_unsupported_type"})";

TEST(LineFormat, EachAlternativeHasItsForm) {
  struct Row {
    const char* sentence;
    EncodableValue value;
    std::string json;
  };
  const Row rows[] = {
      {"null", {}, "null"},
      {"true", true, "true"},
      {"false", false, "false"},
      {"the least 32-bit integer", std::numeric_limits<std::int32_t>::min(), "-2147483648"},
      {"the least 64-bit integer", std::numeric_limits<std::int64_t>::min(),
       "-9223372036854775808"},
      {"the largest 64-bit integer", std::numeric_limits<std::int64_t>::max(),
       "9223372036854775807"},
      {"an empty text", "", R"("")"},
      {"an empty map", EncodableMap{}, "{}"},
      {"no blanks between tokens", EncodableMap{{"a", std::int32_t{1}}, {"b", EncodableMap{}}},
       R"({"a":1,"b":{}})"},
      {"a double", 1.5, kUnsupported},
      {"bytes", std::vector<std::uint8_t>{1}, kUnsupported},
      {"32-bit integers", std::vector<std::int32_t>{1}, kUnsupported},
      {"64-bit integers", std::vector<std::int64_t>{1}, kUnsupported},
      {"doubles", std::vector<double>{1}, kUnsupported},
      {"a list", EncodableList{EncodableValue(true)}, kUnsupported},
      {"a custom value", flutter::CustomEncodableValue{}, kUnsupported},
      {"floats", std::vector<float>{1}, kUnsupported},
      {"an unsupported value inside a map", EncodableMap{{"a", 1.5}, {"b", "c"}},
       std::string(R"({"a":)") + kUnsupported + R"(,"b":"c"})"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(Serialize(row.value), row.json) << row.sentence;
  }
}

TEST(LineFormat, StringsAreEscapedByteByByte) {
  struct Row {
    const char* sentence;
    std::string text;
    std::string json;
  };
  const Row rows[] = {
      {"tab, quote and backslash", "\t\"\\", R"("\u0009\"\\")"},
      {"a line feed never breaks a line", "a\nb", R"("a\u000ab")"},
      {"the byte 0, and hexadecimal digits in lower case", std::string("\0\x1f", 2),
       R"("\u0000\u001f")"},
      {"a slash and 0x7F pass", "/\x7f", "\"/\x7f\""},
      {"UTF-8 passes", "\xC3\xA4\xF0\x9F\x92\xA9", "\"\xC3\xA4\xF0\x9F\x92\xA9\""},
      {"and so does what is no UTF-8", "\x80\xFF\xC0", "\"\x80\xFF\xC0\""},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(Serialize(EncodableValue(row.text)), row.json) << row.sentence;
  }
}

TEST(LineFormat, KeysAscendAndAreValuesThemselves) {
  const EncodableMap map{{"b", true},
                         {"a", true},
                         {"B", true},
                         {"\xC3\xA4", true},
                         {std::int32_t{7}, true},
                         {EncodableMap{{"k", "v"}}, true}};
  EXPECT_EQ(SerializeLine(map),
            "{7:true,\"B\":true,\"a\":true,\"b\":true,\"\xC3\xA4\":true,{\"k\":\"v\"}:true}\n");
}

}  // namespace
}  // namespace korvane
