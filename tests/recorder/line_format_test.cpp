#include "recorder/line_format.h"

#include <gtest/gtest.h>

#include <limits>

namespace korvane {
namespace {

using flutter::EncodableMap;
using flutter::EncodableValue;

const std::string kUnsupported = R"({"recorder_failure":"serialization_unsupported_type"})";

struct Row {
  const char* sentence;
  EncodableValue value;
  std::string json;
};

const Row kRows[] = {
    {"null", {}, "null"},
    {"a bool", false, "false"},
    {"the least 32-bit integer", std::numeric_limits<std::int32_t>::min(), "-2147483648"},
    {"the least 64-bit integer", std::numeric_limits<std::int64_t>::min(), "-9223372036854775808"},
    {"no blanks between tokens", EncodableMap{{"a", true}, {"b", EncodableMap{}}},
     R"({"a":true,"b":{}})"},
    {"a double", 1.5, kUnsupported},
    {"a list", flutter::EncodableList{}, kUnsupported},
    {"bytes", std::vector<std::uint8_t>{1}, kUnsupported},
    {"an unsupported value inside a map", EncodableMap{{"a", 1.5}, {"b", "c"}},
     R"({"a":)" + kUnsupported + R"(,"b":"c"})"},
    {"tab, quote and backslash", "\t\"\\", R"("\u0009\"\\")"},
    {"a line feed never breaks a line", "a\nb", R"("a\u000ab")"},
    {"the byte 0, and digits in lower case", std::string("\0\x1f", 2), R"("\u0000\u001f")"},
    {"a slash and 0x7F pass", "/\x7f", "\"/\x7f\""},
    {"UTF-8 passes, and so does what is none", "\xC3\xA4\x80\xFF", "\"\xC3\xA4\x80\xFF\""},
    {"keys ascend bytewise and are values themselves",
     EncodableMap{{"b", true}, {"a", true}, {"B", true}, {"\xC3\xA4", true}, {std::int32_t{7}, {}}},
     "{7:null,\"B\":true,\"a\":true,\"b\":true,\"\xC3\xA4\":true}"},
};

TEST(LineFormat, EachValueHasItsForm) {
  for (const Row& row : kRows) {
    EXPECT_EQ(Serialize(row.value), row.json) << row.sentence;
  }
  EXPECT_EQ(SerializeLine({{"a", "b"}}), "{\"a\":\"b\"}\n");
}

}  // namespace
}  // namespace korvane
