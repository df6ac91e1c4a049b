// The system's own splitting against the table that the Linux side's splitter is held to.
#include <windows.h>

#include <gtest/gtest.h>
#include <shellapi.h>

#include "platform/command_line_rows.h"

namespace korvane::platform {
namespace {

TEST(CommandLineWordsTest, SystemSplitsAsTheTableSays) {
  for (const CommandLineRow& row : CommandLineRows()) {
    int count = 0;
    LPWSTR* words = ::CommandLineToArgvW(row.line.c_str(), &count);
    ASSERT_NE(words, nullptr) << row.why;
    EXPECT_EQ(std::vector<std::wstring>(words, words + count), row.words) << row.why;
    ::LocalFree(words);
  }
}

}  // namespace
}  // namespace korvane::platform
