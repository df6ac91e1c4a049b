#include "egress/json_document.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string_view>

#include <nlohmann/json.hpp>

#include "support/seed.h"
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
      "{\"a\"", "{\"a\":1", "tru", "truex", "True", "nul", "'a'", "// c\n1",
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

// As another reader sees it. Documents of the generator below have no number that isn't a 64-bit
// integer and no key twice in one object, since the two trees differ there by design.
nlohmann::json AsOtherTree(const JsonValue& value) {
  switch (value.Kind()) {
    case JsonKind::kBool:
      return value.BoolValue();
    case JsonKind::kInteger:
      return value.IntValue();
    case JsonKind::kString:
      return value.StringValue();
    case JsonKind::kArray: {
      auto array = nlohmann::json::array();
      for (const JsonValue& item : value.Items()) {
        array.push_back(AsOtherTree(item));
      }
      return array;
    }
    case JsonKind::kObject: {
      auto object = nlohmann::json::object();
      for (std::size_t i = 0; i < value.MemberCount(); ++i) {
        object[std::string(value.Key(i))] = AsOtherTree(value.Member(i));
      }
      return object;
    }
    default:
      return nullptr;
  }
}

class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed) {}

  nlohmann::json Value(int depth) {
    switch (Below(depth < 5 ? 8 : 5)) {
      case 0:
        return nullptr;
      case 1:
        return Below(2) == 0;
      case 2:
        return static_cast<std::int64_t>(random_() ^ (std::uint64_t{random_()} << 40));
      case 3:
      case 4:
        return Text();
      case 5: {
        auto array = nlohmann::json::array();
        for (std::size_t n = Below(5); n > 0; --n) {
          array.push_back(Value(depth + 1));
        }
        return array;
      }
      default: {
        auto object = nlohmann::json::object();
        for (std::size_t n = Below(5); n > 0; --n) {
          object[Text()] = Value(depth + 1);
        }
        return object;
      }
    }
  }

  std::size_t Below(std::size_t bound) { return random_() % bound; }

 private:
  std::string Text() {
    const std::vector<std::string> pieces = {
        "a", "\"", "\\", "/", "\n", "\x01", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
        "{", ","};
    std::string text;
    for (std::size_t n = Below(6); n > 0; --n) {
      text += pieces[Below(pieces.size())];
    }
    return text;
  }

  std::mt19937 random_;
};

TEST(JsonDocumentTest, AgreesWithAnotherReaderOnSoundDocuments) {
  const unsigned seed = test::Seed();
  Generator generator(seed);
  for (int round = 0; round < 2000; ++round) {
    const nlohmann::json document = generator.Value(0);
    const bool escaped = generator.Below(2) == 0;
    const std::string text = document.dump(round % 3 == 0 ? 1 : -1, ' ', escaped);
    const auto root = ParseJsonDocument(text);
    ASSERT_TRUE(root) << "seed " << seed << ": " << text;
    ASSERT_EQ(AsOtherTree(root->Root()), document) << "seed " << seed << ": " << text;
  }
}

TEST(JsonDocumentTest, AgreesWithAnotherReaderOnDamagedDocuments) {
  const unsigned seed = test::Seed();
  Generator generator(seed);
  constexpr std::string_view kDamage =
      "[]{},:\"tfn \x7F"
      "a";  // neither digits nor escapes
  for (int round = 0; round < 2000; ++round) {
    std::string text = generator.Value(0).dump(-1, ' ', true);
    const std::size_t place = generator.Below(text.size());
    if (text.find('\\') != std::string::npos) {
      continue;  // the other reader is stricter about lone surrogates
    }
    std::replace(text.begin(), text.end(), '0', '1');  // and about zeros, once these lead
    text[place] = kDamage[generator.Below(kDamage.size())];
    ASSERT_EQ(ParseJsonDocument(text).has_value(), nlohmann::json::accept(text))
        << "seed " << seed << ": " << text;
  }
}

}  // namespace
}  // namespace korvane
