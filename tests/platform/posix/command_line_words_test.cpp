#include "platform/posix/command_line_words.h"

#include <gtest/gtest.h>

#include "platform/command_line_rows.h"

namespace korvane::platform {
namespace {

TEST(CommandLineWordsTest, LinesAreSplitAsOnWindows) {
  for (const CommandLineRow& row : CommandLineRows()) {
    EXPECT_EQ(CommandLineWords(row.line), row.words) << row.why;
  }
}

TEST(CommandLineWordsTest, ParametersHaveNoProgramInFront) {
  EXPECT_EQ(ParameterWords(LR"(\"a "b c")"), (std::vector<std::wstring>{LR"("a)", L"b c"}));
  EXPECT_TRUE(ParameterWords(L" \t").empty());
}

TEST(CommandLineWordsTest, LengthDoesNotMatter) {
  const std::wstring quotes(300000, L'"');
  EXPECT_EQ(CommandLineWords(L"p " + quotes).at(1).size(), quotes.size() / 3);
  const std::wstring backslashes(300000, L'\\');
  EXPECT_EQ(CommandLineWords(L"p " + backslashes).at(1).size(), backslashes.size());
}

}  // namespace
}  // namespace korvane::platform
