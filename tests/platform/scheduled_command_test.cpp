#include "platform/scheduled_command.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/real_os.h"
#include "support/scoped_environment.h"
#include "support/temporary_folder.h"

namespace korvane::platform {
namespace {

using test::ScopedEnvironment;

// A program of that name lies beside this one (companions/schtasks.cpp): it writes down its words
// and ends with the code that it is told.
class ScheduledCommandTest : public testing::Test {
 protected:
  Result<std::uint32_t> Run(const std::wstring& line, int code) {
    const ScopedEnvironment told("KORVANE_TEST_SCHTASKS_CODE", std::to_string(code));
    return RealScheduledCommand().Run(line);
  }

  std::string Log() { return test::ReadBytes(folder_ / "log").value_or("no log"); }

 private:
  test::TemporaryFolder folder_;
  ScopedEnvironment log_{"KORVANE_TEST_SCHTASKS_LOG", (folder_ / "log").string()};
};

TEST_F(ScheduledCommandTest, ProgramBesideTheExecutableRunsWithItsWords) {
  const Result<std::uint32_t> code = Run(
      L"schtasks.exe /Create /TN \"Korvane Elevated\" /TR \"\\\"C:\\Program Files\\k.exe\\\"\" /F",
      0);
  ASSERT_TRUE(code) << code.error();
  EXPECT_EQ(code.value(), 0U);
  EXPECT_EQ(
      Log(),
      "schtasks.exe\n/Create\n/TN\nKorvane Elevated\n/TR\n\"C:\\Program Files\\k.exe\"\n/F\n");
}

TEST_F(ScheduledCommandTest, CodeOfTheCommandIsTheResult) {
  for (const int code : {1, 37, 255}) {
    const Result<std::uint32_t> result = Run(L"schtasks.exe /Query", code);
    ASSERT_TRUE(result) << result.error();
    EXPECT_EQ(result.value(), static_cast<std::uint32_t>(code));
  }
}

TEST_F(ScheduledCommandTest, MissingProgramIsAFailure) {
  constexpr ErrorCode kFileNotFound = 2;
  EXPECT_EQ(Run(L"korvane_no_such_program.exe /Query", 0).error(), kFileNotFound);
  EXPECT_FALSE(Run(L"", 0));
  EXPECT_EQ(Log(), "no log");
}

}  // namespace
}  // namespace korvane::platform
