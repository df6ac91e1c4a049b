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

}  // namespace
}  // namespace korvane::platform
