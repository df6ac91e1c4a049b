#include "egress/json_document.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string_view>

#include "support/small_stack.h"

namespace korvane {
namespace {

using namespace std::string_view_literals;
using testing::ElementsAre;

std::string Nested(std::size_t levels, const std::string& inside) {
  return std::string(levels, '[') + inside + std::string(levels, ']');
}

std::string Repeated(std::size_t times, std::string_view piece, std::string_view begin = "") {
  std::string text(begin);
  for (; times > 0; --times) {
    text += piece;
  }
  return text;
}

TEST(JsonDocumentTest, AcceptsAndRefusesAsStated) {
  constexpr std::string_view kAccepted[] = {
      "{}", "[]", " 1 ", "null", "\t\r\n {\r\"a\" : [ ] , \"b\":\n{ } }\t",
      R"([1,"a",true,false,null,{"k":[]}])", "\"\"", "\"raw\nline\tbreak\x01\"",
      // Bytes of a string aren't checked.
      "\"\xFF\xC0\"", "\"a\0b\""sv, "007", "-007.50E+01"};
  for (const std::string_view text : kAccepted) {
    EXPECT_TRUE(ParseJsonDocument(text)) << text;
  }
  constexpr std::string_view kRefused[] = {
      "", " \t\r\n", "1 2", "{},", "{}{}", "[1,]", "[,1]", "[1 2]", "{\"a\":1,}", "{\"a\" 1}",
      "{a:1}", "{1:1}", "{\"a\":}", "{\"a\":1 \"b\":2}", "{\"a\":1]", "[1}", "]", "[", "{", "[1",
      "{\"a", "{\"a\"", "{\"a\":1", "tru", "truex", "True", "nul", "'a'", "// c\n1",
      // A byte-order mark is no blank, and a zero byte no end.
      "\xEF\xBB\xBF{}", "\f1", "\v1",
      "\xC2\xA0"
      "1",
      "1\0"sv, "\0"sv, ".5", "1.", "1.e3", "1e", "1e+", "1e+-2", "+1", "-", "--1", "- 1", "1.2.3",
      "0x10", "NaN", "Infinity", "\"", "\"a", "\"a\\", "\"a\\\"", "\"\\q\"", "\"\\U0041\"",
      "\"\\u\"", "\"\\u12\"", "\"\\u12G4\"", "\"\\u-123\"", "\"\\u 123\"", "\"\\u123",
      "\"\\uD83D\\u12\"", "\"\\uD83D\\\""};
  for (const std::string_view text : kRefused) {
    EXPECT_FALSE(ParseJsonDocument(text)) << text;
  }
}

TEST(JsonDocumentTest, KeepsOnlyIntegersOf64Bits) {
  struct Case {
    const char* text;
    JsonKind kind;
    std::int64_t value;
  };
  constexpr Case kCases[] = {
      {"0", JsonKind::kInteger, 0},
      {"-0", JsonKind::kInteger, 0},
      {"007", JsonKind::kInteger, 7},
      {"-0012", JsonKind::kInteger, -12},
      {"9223372036854775807", JsonKind::kInteger, INT64_MAX},
      {"00000000000000000009223372036854775807", JsonKind::kInteger, INT64_MAX},
      {"-9223372036854775808", JsonKind::kInteger, INT64_MIN},
      {"9223372036854775808", JsonKind::kOtherNumber, 0},
      {"-9223372036854775809", JsonKind::kOtherNumber, 0},
      {"12345678901234567890", JsonKind::kOtherNumber, 0},
      {"1.0", JsonKind::kOtherNumber, 0},
      {"443.0", JsonKind::kOtherNumber, 0},
      {"1e3", JsonKind::kOtherNumber, 0},
      {"1E-3", JsonKind::kOtherNumber, 0},
      {"1e999999999", JsonKind::kOtherNumber, 0},
  };
  for (const Case& each : kCases) {
    const auto root = ParseJsonDocument(each.text);
    ASSERT_TRUE(root) << each.text;
    EXPECT_EQ(root->Root().Kind(), each.kind) << each.text;
    EXPECT_EQ(root->Root().IntValue(), each.value) << each.text;
  }
}

TEST(JsonDocumentTest, DecodesEscapesIntoBytes) {
  struct Case {
    const char* text;
    std::string bytes;
  };
  const std::vector<Case> cases = {
      {R"("\"\\\/\b\f\n\r\t")", "\"\\/\b\f\n\r\t"},
      {R"("\u0041\u00e9\u20AC")", "A\xC3\xA9\xE2\x82\xAC"},
      {R"("a\u0000b")", std::string("a\0b", 3)},
      {R"("\u007F\u0080\u07FF\u0800\uFFFF")", "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF"},
      {R"("\uD83D\uDE00")", "\xF0\x9F\x98\x80"},
      {R"("\ud800\udc00\uDBFF\uDFFF")", "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
      // Lone surrogates stand as three bytes, and what follows them is read for itself.
      {R"("\uD83Dx")", "\xED\xA0\xBDx"},
      {R"("\uD83D\uE000")", "\xED\xA0\xBD\xEE\x80\x80"},
      {R"("\uDE00")", "\xED\xB8\x80"},
      {R"("\uDE00\uD83D")", "\xED\xB8\x80\xED\xA0\xBD"},
      {R"("\uD83D\uD83D\uDE00")", "\xED\xA0\xBD\xF0\x9F\x98\x80"},
      {R"("\uD83D\u0041")",
       "\xED\xA0\xBD"
       "A"},
      {R"("\uD83D\n")", "\xED\xA0\xBD\n"},
  };
  for (const Case& each : cases) {
    const auto root = ParseJsonDocument(each.text);
    ASSERT_TRUE(root) << each.text;
    EXPECT_EQ(root->Root().StringValue(), each.bytes) << each.text;
  }
}

TEST(JsonDocumentTest, KeepsKeysInOrderWithDuplicates) {
  const auto document = ParseJsonDocument(R"({"b":1,"a":2,"b":3,"":4,"\u0061":5})");
  ASSERT_TRUE(document);
  const JsonValue& root = document->Root();
  std::vector<std::string_view> keys;
  for (std::size_t i = 0; i < root.MemberCount(); ++i) {
    keys.push_back(root.Key(i));
    EXPECT_EQ(root.Member(i).IntValue(), static_cast<std::int64_t>(i + 1));
  }
  EXPECT_THAT(keys, ElementsAre("b", "a", "b", "", "a"));
  EXPECT_EQ(FindMember(root, "b"), &root.Member(0));  // the first of two
  EXPECT_EQ(FindMember(root, "a"), &root.Member(1));
  EXPECT_EQ(FindMember(root, ""), &root.Member(3));
  EXPECT_EQ(FindMember(root, "B"), nullptr);
  EXPECT_EQ(FindMember(root.Member(0), "b"), nullptr);  // no object
}

TEST(JsonDocumentTest, CountsDepthOnEveryValue) {
  EXPECT_TRUE(ParseJsonDocument(Nested(65, "")));
  EXPECT_FALSE(ParseJsonDocument(Nested(66, "")));
  EXPECT_TRUE(ParseJsonDocument(Nested(64, "1")));
  EXPECT_FALSE(ParseJsonDocument(Nested(65, "1")));
  EXPECT_FALSE(ParseJsonDocument(Nested(65, "\"a\"")));
  EXPECT_TRUE(ParseJsonDocument(Repeated(64, "{\"a\":") + "{}" + Repeated(64, "}")));
  EXPECT_FALSE(ParseJsonDocument(Repeated(65, "{\"a\":") + "{}" + Repeated(65, "}")));
}

TEST(JsonDocumentTest, TakesHostileTextsOnASmallStack) {
  const std::string deep = std::string(1'000'000, '[');
  const std::string wide = Repeated(200'000, "[],", "[") + "0]";
  const std::string number = std::string(2'000'000, '9');
  const std::string escapes = Repeated(500'000, "\\uD83D", "\"") + "\"";
  test::RunOnSmallStack([&] {
    EXPECT_FALSE(ParseJsonDocument(deep));
    EXPECT_FALSE(ParseJsonDocument(Repeated(500'000, "{\"a\":")));
    EXPECT_TRUE(ParseJsonDocument(wide));
    EXPECT_TRUE(ParseJsonDocument(Nested(65, "")));
    EXPECT_EQ(ParseJsonDocument(number)->Root().Kind(), JsonKind::kOtherNumber);
    EXPECT_EQ(ParseJsonDocument(escapes)->Root().StringValue().size(), 1'500'000U);
  });
}

}  // namespace
}  // namespace korvane
