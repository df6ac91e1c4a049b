#include "diagnostics_evidence/redaction.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "diagnostics_evidence/redaction_passes.h"
#include "support/seed.h"
#include "support/small_stack.h"

namespace korvane {
namespace {

using namespace std::string_literals;

// The expressions are the definition of what is matched.
struct Expressions {
  std::regex url{R"([a-zA-Z][a-zA-Z0-9+.-]*://[^\s"']+)"};
  std::regex ipv4{R"(\d{1,3}(?:\.\d{1,3}){3}(?::\d{1,5})?)"};
  std::regex address{R"([0-9A-Fa-f:.]+(?:%[A-Za-z0-9_.~-]+)?)"};
  std::regex host{R"(\b(?:[A-Za-z0-9](?:[A-Za-z0-9-]*[A-Za-z0-9])?\.)+[A-Za-z]{2,}:\d{1,5}\b)"};
  std::regex long_token{R"(\b[A-Za-z0-9+/_-]{24,}={0,2}\b)"};
  std::regex control{
      R"(\x1B(?:\[[0-?]*[ -/]*[@-~]|\][^\x07\x1B]*(?:\x07|\x1B\\))|[\x00-\x08\x0B-\x1F\x7F]|\xC2[\x80-\x9F])"};
  std::regex encoded{R"(%([0-9a-fA-F]{2})|\\u00([0-9a-fA-F]{2}))"};
};
const Expressions& By() {
  static const Expressions expressions;
  return expressions;
}

std::string ReplaceEach(const std::string& text, const std::regex& expression,
                        const std::function<std::string(const std::smatch&)>& replacement) {
  std::string result;
  auto copied = text.begin();
  for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end;
       ++match) {
    result.append(copied, text.begin() + match->position());
    result += replacement(*match);
    copied = text.begin() + match->position() + match->length();
  }
  result.append(copied, text.end());
  return result;
}

std::string ReplaceEach(const std::string& text, const std::regex& expression,
                        const std::string& token) {
  return ReplaceEach(text, expression, [&token](const std::smatch&) { return token; });
}

std::string ModelDecode(const std::string& text) {
  return ReplaceEach(text, By().encoded, [](const std::smatch& match) {
    const std::string digits = match[1].matched ? match[1] : match[2];
    return std::string(1, static_cast<char>(std::stoi(digits, nullptr, 16)));
  });
}

std::string ModelAddresses(const std::string& text) {
  return ReplaceEach(text, By().address, [](const std::smatch& match) {
    const std::string token = match.str();
    const bool address =
        token.find("::") != std::string::npos || std::count(token.begin(), token.end(), ':') >= 3;
    return address ? "[ip]"s : token;
  });
}

std::string ModelHosts(const std::string& text) {
  return ReplaceEach(text, By().host, [](const std::smatch& match) {
    const std::string host = match.str().substr(0, match.str().find(':'));
    return host.ends_with(".go") ? match.str() : "[host]"s;
  });
}

// The nine passes on the library's own expressions.
std::string ModelRedact(const std::string& text) {
  std::string clean = ReplaceEach(text, By().control, "");
  for (int pass = 0; pass < 4 && std::regex_search(clean, By().encoded); ++pass) {
    clean = ModelDecode(clean);
  }
  if (std::regex_search(clean, By().encoded)) {
    return "[omitted: encoded diagnostic]";
  }
  while (std::regex_search(clean, By().control)) {
    clean = ReplaceEach(clean, By().control, "");
  }
  if (std::regex_search(clean, By().encoded)) {
    return "[omitted: encoded diagnostic]";
  }
  clean = ModelAddresses(ReplaceEach(clean, By().url, "[url]"));
  clean = ModelHosts(ReplaceEach(clean, By().ipv4, "[ip]"));
  return ReplaceEach(clean, By().long_token, "[redacted]");
}

std::string RandomOf(std::mt19937& random, const std::vector<std::string>& pieces,
                     std::size_t most) {
  std::string text;
  const std::size_t count = random() % (most + 1);
  for (std::size_t i = 0; i < count; ++i) {
    text += pieces[random() % pieces.size()];
  }
  return text;
}

TEST(Redaction, KnownTextsGiveTheirKnownForms) {
  const struct {
    std::string text, expected;
  } rows[] = {
      {"", ""},
      {"dial tcp 1.2.3.4:443: timeout", "dial tcp [ip]: timeout"},
      {"node.test:8443 at main.go:42", "[host] at main.go:42"},
      {"ws://h.t/c?d=e done", "[url] done"},
      {"fe80::1%eth0 at 12:30:05", "[ip] at 12:30:05"},
      {"at 12:30:05: x", "at [ip] x"},
      {"%2568ttp%3A%2F%2Fx", "[url]"},
      {"%25252525252541", "[omitted: encoded diagnostic]"},
      {"%4%001", "[omitted: encoded diagnostic]"},
      {std::string(24, 'k') + "== " + std::string(23, 'k'), "[redacted]== " + std::string(23, 'k')},
      {"\x1B[31mred\x1B[0m\t\x1B]0;title\x07text\n", "red\ttext\n"},
      {"\xC2\xC2\x80\x80", ""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(redactDiagnosticText(row.text), row.expected) << row.text;
  }
}

TEST(Redaction, EachPassEqualsItsExpression) {
  using namespace redaction;
  const struct {
    const char* pass;
    std::function<std::string(const std::string&)> ours, model;
    std::vector<std::string> alphabet;
  } rows[] = {
      {"controls",
       [](const std::string& t) { return RemoveControls(t); },
       [](const std::string& t) { return ReplaceEach(t, By().control, ""); },
       {"\x1B", "[",    "]",  "0",  "?",    " ",    "/",    "@",    "~",   "m", "\x07",
        "\\",   "\x7F", "\t", "\n", "\xC2", "\x80", "\x9F", "\xA0", "\0"s, "a"}},
      {"decode",
       [](const std::string& t) { return DecodeOnce(t); },
       ModelDecode,
       {"%", "\\", "u", "0", "4", "1", "F", "g", "\\u00", "%2"}},
      {"urls",
       [](const std::string& t) { return ReplaceUrls(t); },
       [](const std::string& t) { return ReplaceEach(t, By().url, "[url]"); },
       {"a", "Z", "1", "+", ".", "-", ":", "/", "://", " ", "\"", "'", "_", "\x0B", "\xC3"}},
      {"addresses",
       [](const std::string& t) { return ReplaceAddressTokens(t); },
       ModelAddresses,
       {"0", "a", "F", "g", ":", "::", ".", "%", "~", "_", "-", " "}},
      {"ipv4",
       [](const std::string& t) { return ReplaceIpv4(t); },
       [](const std::string& t) { return ReplaceEach(t, By().ipv4, "[ip]"); },
       {"1", "23", "456", "7890", ".", ".1", ".22", ":", ":5", "x"}},
      {"hosts",
       [](const std::string& t) { return ReplaceHosts(t); },
       ModelHosts,
       {"a", "bc", "1", "-", ".", "_", ".go", ".com", ":80", ":", ":123456", " ", "x.yz:1",
        "\xC3"}},
      {"long tokens",
       [](const std::string& t) { return ReplaceLongTokens(t); },
       [](const std::string& t) { return ReplaceEach(t, By().long_token, "[redacted]"); },
       {"abcdefghijkl", "ABCDEFGHIJK", "a", "+", "/", "-", "_", "=", "==", ".", " ", "\xC3"}},
  };
  for (const auto& row : rows) {
    std::mt19937 random(test::Seed());
    for (int i = 0; i < 3000; ++i) {
      const std::string text = RandomOf(random, row.alphabet, 14);
      ASSERT_EQ(row.ours(text), row.model(text))
          << row.pass << ", seed " << test::Seed() << ": " << text;
    }
  }
}

std::vector<std::string> Fragments() {
  constexpr const char* kPlain[] = {"http://",
                                    "vless://u@h",
                                    "://",
                                    "h.test",
                                    "node-1.example.org:8443",
                                    "main.go:42",
                                    "svc.go:7",
                                    "1.2.3.4",
                                    "10.0.0.1:443",
                                    "999.1.2.3.4",
                                    "fe80::1",
                                    "%eth0",
                                    "2001:db8::1",
                                    "::",
                                    "12:30:05",
                                    "qqqqqqqqqqqqqqqqqqqqqqq",
                                    "qqqqqqqqqqqqqqqqqqqqqqqq",
                                    "QUJDREVGR0hJSktMTU5PUFFSU1RVVg==",
                                    "_",
                                    "-",
                                    "=",
                                    " ",
                                    "\t",
                                    "\n",
                                    "\"",
                                    "'",
                                    ".",
                                    ":",
                                    "error",
                                    "\xC2",
                                    "\x80",
                                    "\x85",
                                    "\x7F",
                                    "%4",
                                    "%00",
                                    "%",
                                    "\\u00",
                                    "41",
                                    "std::string"};
  std::vector<std::string> fragments(std::begin(kPlain), std::end(kPlain));
  fragments.push_back("\0"s);
  const std::string ansi = "\x1B[1;31m";
  const std::string osc = "\x1B]8;;x\x1B\\";
  for (std::size_t cut = 1; cut <= ansi.size(); ++cut) {
    fragments.push_back(ansi.substr(0, cut));
  }
  for (std::size_t cut = 1; cut <= osc.size(); ++cut) {
    fragments.push_back(osc.substr(0, cut));
  }
  // Encodings of a letter, a colon and a control, nested up to six deep.
  for (const char* digits : {"41", "3A", "01", "C2"}) {
    std::string nested = std::string("%") + digits;
    for (int depth = 0; depth < 6; ++depth) {
      fragments.push_back(nested);
      nested.insert(1, "25");
    }
    fragments.push_back(std::string("\\u00") + digits);
  }
  return fragments;
}

TEST(Redaction, WholeFilterEqualsTheNinePassesAndIsAFixedPoint) {
  const std::vector<std::string> fragments = Fragments();
  std::mt19937 random(test::Seed());
  for (int i = 0; i < 4000; ++i) {
    const std::string text = RandomOf(random, fragments, 10);
    const std::string redacted = redactDiagnosticText(text);
    ASSERT_EQ(redacted, ModelRedact(text))
        << "seed " << test::Seed() << ", text " << i << ": " << text;
    ASSERT_EQ(redactDiagnosticText(redacted), redacted) << "seed " << test::Seed() << ": " << text;
  }
}

// A recursive matcher would end the process here.
TEST(Redaction, RunsOfMillionsOfCharactersNeedNoStack) {
  constexpr std::size_t kRun = 2'000'000;
  const std::string digits(kRun, '7');
  std::string host;
  std::string joined;
  for (std::size_t i = 0; i < kRun / 2; ++i) {
    host += "a.";
    joined += "\xC2";
  }
  test::RunOnSmallStack([&] {
    EXPECT_EQ(redactDiagnosticText(std::string(kRun, 'x')), "[redacted]");
    EXPECT_EQ(redactDiagnosticText(std::string(kRun, '-')), std::string(kRun, '-'));
    EXPECT_EQ(redactDiagnosticText("http://" + digits), "[url]");
    EXPECT_EQ(redactDiagnosticText(host + "com:80"), "[host]");
    EXPECT_EQ(redactDiagnosticText("\x1B]" + digits), "]"s + "[redacted]");
    EXPECT_EQ(redactDiagnosticText(joined + std::string(kRun / 2, '\x80')), "");
    EXPECT_EQ(redactDiagnosticText(std::string(kRun, ':')), "[ip]");
    EXPECT_EQ(redactDiagnosticText(std::string(kRun, '%')), std::string(kRun, '%'));
  });
}

}  // namespace
}  // namespace korvane
