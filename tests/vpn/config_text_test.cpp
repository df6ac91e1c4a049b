#include "vpn/config_text.h"

#include <gtest/gtest.h>

#include <random>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/os.h"
#include "support/seed.h"
#include "support/small_stack.h"

namespace korvane {
namespace {

TEST(ConfigText, ModeGoesByExactTags) {
  const struct {
    const char *why, *text, *mode;
  } rows[] = {
      {"nothing at all", "", "none"},
      {"no blank behind the colon", R"({"tag":"tun-in"})", "tun"},
      {"one blank", R"({"tag": "tun-in"})", "tun"},
      {"a blank ahead of the colon", R"({"tag" : "tun-in"})", "unknown"},
      {"two blanks", R"({"tag":  "tun-in"})", "unknown"},
      {"another case", R"({"tag":"TUN-IN"})", "unknown"},
      {"tun beats mixed", R"({"tag":"mixed-in"},{"tag":"tun-in"})", "tun"},
      {"mixed by tag", R"({"tag":"mixed-in"})", "proxy"},
      {"mixed by tag and blank", R"({"tag": "mixed-in"})", "proxy"},
      {"mixed by type", R"({"type":"mixed"})", "proxy"},
      {"mixed by type and blank", R"({"type": "mixed"})", "proxy"},
      {"inside a string value", R"({"note":"\"type\":\"mixed\""} "type":"mixed")", "proxy"},
      {"something else", "{}", "unknown"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ClassifyConfigMode(row.text), row.mode) << row.why;
  }
}

TEST(ConfigText, MixedPortIsReadByHand) {
  const struct {
    const char *why, *text;
    int port;
  } rows[] = {
      {"no tag", R"("listen_port":2080)", 10081},
      {"plain", R"("tag":"mixed-in","listen_port":2080)", 2080},
      {"blanks and tabs behind the colon", "\"mixed-in\" \"listen_port\": \t 2081,", 2081},
      {"a blank ahead of the colon", R"("mixed-in" "listen_port" : 2080)", 10081},
      {"the port ahead of the tag", R"("listen_port":2080,"tag":"mixed-in")", 10081},
      {"a line feed behind the colon", "\"mixed-in\" \"listen_port\":\n2080", 10081},
      {"no digits", R"("mixed-in" "listen_port":"2080")", 10081},
      {"a sign", R"("mixed-in" "listen_port":-1)", 10081},
      {"digits up to the end", R"("mixed-in" "listen_port":7)", 7},
      {"key at the very end", R"("mixed-in" "listen_port":)", 10081},
      {"a fraction", R"("mixed-in" "listen_port":20.5)", 20},
      {"the first key counts", R"("mixed-in" "listen_port":1 "listen_port":2)", 1},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(FindMixedListenPort(row.text), row.port) << row.why;
  }
  EXPECT_THROW(FindMixedListenPort(R"("mixed-in" "listen_port":2147483648)"), std::out_of_range);
}

TEST(ConfigText, CollisionNeedsBothItsParts) {
  const struct {
    const char* error;
    bool collision;
  } rows[] = {
      {"start: Configure TUN Interface: Cannot create a file when that file already exists.", true},
      {"configure tun interface: ALREADY EXISTS", true},
      {"configure tun interface: access denied", false},
      {"file already exists", false},
      {"configure  tun interface: already exists", false},
      {"configure tun interface: file already exists", true},
      {"", false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(IsTunCollisionError(row.error), row.collision) << row.error;
  }
}

TEST(ConfigText, InterfaceNamesCountFromOne) {
  const std::string prefix = "Korvane-TUN-" + std::to_string(platform::os().process->Id()) + "-";
  EXPECT_EQ(NextTunInterfaceName(), prefix + "1");
  EXPECT_EQ(NextTunInterfaceName(), prefix + "2");
}

const std::regex& InterfaceNameExpression() {
  static const std::regex expression(R"("interface_name"\s*:\s*"[^"]*")");
  return expression;
}

TEST(ConfigText, RewriteEqualsItsExpression) {
  const std::vector<std::string> pieces = {
      "\"interface_name\"", "\"interface_name\":\"", "\"interface_name",
      // What may stand around the colon and in the value.
      ":", ": ", "\"", "\" ", "\"\t", "\n", "\v", "tun0", ",", "\\", "{", "\xA0"};
  const unsigned seed = test::Seed();
  std::mt19937 random(seed);
  int rewritten = 0;
  for (int i = 0; i < 5000; ++i) {
    std::string text;
    for (std::size_t count = random() % 14; count > 0; --count) {
      text += pieces[random() % pieces.size()];
    }
    const std::string expected = std::regex_replace(
        text, InterfaceNameExpression(), std::string("\"interface_name\": \"Korvane-TUN-1-1\""),
        std::regex_constants::format_first_only);
    ASSERT_EQ(RewriteInterfaceName(text, "Korvane-TUN-1-1"), expected)
        << "seed " << seed << ": " << text;
    rewritten += text != expected ? 1 : 0;
  }
  EXPECT_GT(rewritten, 100) << "the generated texts hardly ever match";
}

// A recursive matcher would end the process here.
TEST(ConfigText, ValueOfMillionsOfCharactersIsRewritten) {
  const std::string text = "\"interface_name\" : \"" + std::string(5'000'000, 'x') + "\",\"a\":1";
  test::RunOnSmallStack(
      [&] { EXPECT_EQ(RewriteInterfaceName(text, "n"), "\"interface_name\": \"n\",\"a\":1"); });
}

}  // namespace
}  // namespace korvane
