// The matchers against the expressions that define them, and against texts that the library's own
// engine would not survive.
#include "engine_api/clash_patterns.h"

#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "support/seed.h"
#include "support/small_stack.h"

namespace korvane::test {
namespace {

constexpr int kTexts = 3000;

// The key as it stands in its expression.
std::string RegexEscapeKey(const std::string& key) {
  std::string escaped;
  for (const char c : key) {
    if (std::string_view("\\$()*+-./?[]^{|}").find(c) != std::string_view::npos) {
      escaped += '\\';
    }
    escaped += c;
  }
  return escaped;
}

std::optional<std::string> Searched(const std::string& text, const std::regex& expression) {
  std::smatch match;
  return std::regex_search(text, match, expression) ? std::optional(match[1].str()) : std::nullopt;
}

std::optional<std::string> Owned(std::optional<std::string_view> view) {
  return view ? std::optional(std::string(*view)) : std::nullopt;
}

// Key, digits and end of every match, one after the other.
std::string AllSearched(const std::string& text, const std::regex& expression) {
  std::string all;
  std::smatch match;
  for (auto from = text.begin(); std::regex_search(from, text.end(), match, expression);
       from = match[0].second) {
    all += match[1].str() + "=" + match[2].str() + "@" +
           std::to_string(match[0].second - text.begin()) + "\n";
  }
  return all;
}

template <typename MatchNext>
std::string AllMatched(const std::string& text, MatchNext match_next) {
  std::string all;
  auto match = match_next(text, 0);
  while (match) {
    all += std::string(match->key) + "=" + std::string(match->digits) + "@" +
           std::to_string(match->end) + "\n";
    match = match_next(text, match->end);
  }
  return all;
}

// Texts of pieces that fit together now and then.
class Texts {
 public:
  explicit Texts(unsigned seed) : random_(seed) {}

  std::string Next(const std::vector<std::string>& words) {
    // Those that stand here more than once are wanted more often.
    static const std::vector<std::string> kPieces =
        Split(std::string("\"|\"|\"|:|:|:| |\n|\t|\v\f\r|\xa0|\x80\xff|") + '\0' +
              "|0|7|42|-|-5|+1|node_|x|{|,|\\\"");
    std::string text;
    for (std::size_t left = 1 + random_() % 24; left > 0; --left) {
      const bool word = random_() % 3 == 0;
      text += word ? words[random_() % words.size()] : kPieces[random_() % kPieces.size()];
    }
    return text;
  }

 private:
  static std::vector<std::string> Split(const std::string& text) {
    std::vector<std::string> pieces;
    std::istringstream stream(text);
    for (std::string piece; std::getline(stream, piece, '|');) {
      pieces.push_back(piece);
    }
    return pieces;
  }

  std::mt19937 random_;
};

class ClashPatterns : public testing::Test {
 protected:
  ClashPatterns() { RecordProperty("seed", std::to_string(seed_)); }

  const unsigned seed_ = Seed();
  testing::ScopedTrace trace_{__FILE__, __LINE__, "seed " + std::to_string(seed_)};
  Texts texts_{seed_};
};

TEST_F(ClashPatterns, PortsAreWhatTheirExpressionsSay) {
  const std::regex controller(R"re("external_controller"\s*:\s*"127\.0\.0\.1:(\d+)")re");
  const std::regex listen(R"re("listen_port"\s*:\s*(\d+))re");
  const std::vector<std::string> words = {"\"external_controller\"",
                                          "\"external_controller\":",
                                          "\"external_controller\" : \"127.0.0.1:",
                                          "\"127.0.0.1:",
                                          "\"127.0.0.1:90\"",
                                          "\"127x0.0.1:90\"",
                                          "\"listen_port\"",
                                          "\"listen_port\":",
                                          "listen_port"};
  int matches = 0;
  for (int i = 0; i < kTexts; ++i) {
    const std::string text = texts_.Next(words);
    const auto port = Owned(MatchControllerPort(text));
    matches += port ? 1 : 0;
    ASSERT_EQ(port, Searched(text, controller)) << testing::PrintToString(text);
    ASSERT_EQ(Owned(MatchListenPort(text)), Searched(text, listen)) << testing::PrintToString(text);
  }
  EXPECT_GT(matches, 0);
}

TEST_F(ClashPatterns, FieldsAreWhatTheirExpressionsSay) {
  for (const std::string key : {"now", "delay", "a.b", "", "x", "node_7", "[a-z]*", "$^|{}()+?/\\-",
                                "\xe6\x97\xa5\xe6\x9c\xac #1", "a\nb"}) {
    const std::string expression = '"' + RegexEscapeKey(key) + "\"\\s*:\\s*";
    const std::regex number(expression + "(-?\\d+)");
    const std::regex string(expression + "\"([^\"]*)\"");
    const std::vector<std::string> words = {
        "\"" + key + "\"", "\"" + key + "\":", "\"" + key + "\" : \"", key, "\"axb\":"};
    int matches = 0;
    for (int i = 0; i < kTexts / 8; ++i) {
      const std::string text = texts_.Next(words);
      const auto value = Owned(MatchString(text, key));
      matches += value ? 1 : 0;
      ASSERT_EQ(value, Searched(text, string)) << key << " in " << testing::PrintToString(text);
      ASSERT_EQ(Owned(MatchInt(text, key)), Searched(text, number))
          << key << " in " << testing::PrintToString(text);
    }
    EXPECT_GT(matches, 0) << key;
  }
}

TEST_F(ClashPatterns, DelaysAreWhatTheirExpressionsSay) {
  const std::regex any(R"re("([^"]+)"\s*:\s*(\d+))re");
  const std::regex node(R"re("(node_\d+)"\s*:\s*(\d+))re");
  const std::vector<std::string> words = {"\"node_1\":", "\"node_22\" : 9", "\"node_\":3",
                                          "\"node_x\":", "\"a\":12,",       "\"\":5"};
  std::size_t found = 0;
  for (int i = 0; i < kTexts; ++i) {
    const std::string text = texts_.Next(words);
    const std::string matched = AllMatched(text, MatchDelay);
    found += matched.size();
    ASSERT_EQ(matched, AllSearched(text, any)) << testing::PrintToString(text);
    ASSERT_EQ(AllMatched(text, MatchNodeDelay), AllSearched(text, node))
        << testing::PrintToString(text);
  }
  EXPECT_GT(found, 0U);
}

// Each of these costs a backtracking or quadratic matcher minutes, or its stack.
TEST_F(ClashPatterns, LongTextsAreReadInLinearTimeAndOnASmallStack) {
  constexpr std::size_t kBytes = std::size_t{1} << 20;
  for (const std::string piece :
       {"\"", "\"now\"", "\"now\":", "\"now\"  ", "\"now\":\"", "7", "\"node_1", "\"node_1\":",
        "\"a\" ", "x", "\"external_controller\":\"127.0.0.1:1x", "\"listen_port\":x", ":", " "}) {
    std::string text = "\"now\":\"";
    while (text.size() < kBytes) {
      text += piece;
    }
    RunOnSmallStack([&] {
      EXPECT_FALSE(MatchControllerPort(text)) << piece;
      EXPECT_FALSE(MatchListenPort(text)) << piece;
      EXPECT_FALSE(MatchInt(text, "now")) << piece;
      EXPECT_FALSE(MatchInt(text, std::string(1000, 'n'))) << piece;
      static_cast<void>(MatchString(text, "now"));
      EXPECT_EQ(AllMatched(text, MatchDelay), "") << piece;
      EXPECT_EQ(AllMatched(text, MatchNodeDelay), "") << piece;
    });
  }
}

}  // namespace
}  // namespace korvane::test
