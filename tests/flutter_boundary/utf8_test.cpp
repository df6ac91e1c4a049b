#include "flutter_boundary/utf8.h"

#include <gtest/gtest.h>

#include "platform/os.h"

namespace korvane {
namespace {

TEST(Utf8Test, OnlyWellFormedSequencesAreValid) {
  const struct {
    std::string_view text;
    bool valid;
  } rows[] = {
      {"", true},
      {"plain", true},
      {std::string_view("\0", 1), true},
      {"\x7F", true},
      {"\xC2\x80\xDF\xBF", true},
      {"\xE0\xA0\x80\xEF\xBF\xBF", true},
      {"\xED\x9F\xBF\xEE\x80\x80", true},  // on both sides of the surrogates
      {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", true},
      {"\x80", false},      // a continuation alone
      {"\xC0\x80", false},  // overlong
      {"\xC1\xBF", false},
      {"\xE0\x9F\xBF", false},
      {"\xF0\x8F\xBF\xBF", false},
      {"\xED\xA0\x80", false},  // surrogates
      {"\xED\xBF\xBF", false},
      {"\xF4\x90\x80\x80", false},  // above U+10FFFF
      {"\xF5\x80\x80\x80", false},
      {"\xFF", false},
      {"a\xC3", false},  // cut
      {"\xE2\x82", false},
      {"\xF0\x9F\x98", false},
      {"\xC3(", false},
      {"\xE2\x82(", false},
      {"\xF0\x9F\x98(", false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(IsValidUtf8(row.text), row.valid) << testing::PrintToString(row.text);
  }
}

// Only the one operation is called.
class CodePage : public platform::TextEncoding {
 public:
  std::string answer;
  int asked = 0;

  std::string AnsiToUtf8(std::string_view) override {
    ++asked;
    return answer;
  }
  std::optional<std::string> WideToUtf8(std::wstring_view) override { return {}; }
  std::string WideToUtf8Lossy(std::wstring_view) override { return {}; }
  std::optional<std::wstring> Utf8ToWide(std::string_view) override { return {}; }
  std::filesystem::path PathFromNarrow(std::string_view) override { return {}; }
  std::string NarrowFromPath(const std::filesystem::path&) override { return {}; }
  std::filesystem::path PathFromWide(std::wstring_view) override { return {}; }
  char PathSeparator() override { return '/'; }
  std::string ErrorMessage(platform::ErrorCode) override { return {}; }
};

TEST(Utf8Test, EnsureUtf8TriesTheCodePageAndThenQuestionMarks) {
  CodePage code_page;
  platform::Os os = platform::RealOs();
  os.text = &code_page;
  const platform::ScopedOs scope(os);

  EXPECT_EQ(EnsureUtf8("\xC3\xA9"), "\xC3\xA9");
  EXPECT_EQ(EnsureUtf8(""), "");
  EXPECT_EQ(code_page.asked, 0);

  code_page.answer = "caf\xC3\xA9";
  EXPECT_EQ(EnsureUtf8("caf\xE9"), "caf\xC3\xA9");
  code_page.answer = "";
  EXPECT_EQ(EnsureUtf8("a\xC3\xA9\xFFz"), "a???z");
}

TEST(Utf8Test, EnsureUtf8AlwaysGivesValidText) {
  for (int first = 0x80; first < 0x100; ++first) {
    const std::string text = {'a', static_cast<char>(first), 'b'};
    EXPECT_TRUE(IsValidUtf8(EnsureUtf8(text))) << first;
    EXPECT_FALSE(EnsureUtf8(text).empty()) << first;
  }
}

}  // namespace
}  // namespace korvane
