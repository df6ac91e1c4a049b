#include "platform/process.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "platform/real_os.h"
#include "support/scoped_environment.h"
#include "support/second_process_role.h"

namespace korvane::platform {
namespace {

using test::SayLine;
using test::ScopedEnvironment;
using test::SecondProcess;
using test::SecondProcessRole;

constexpr char kVariable[] = "KORVANE_TEST_VARIABLE";

const SecondProcessRole kTeller("id teller", [] {
  SayLine(std::to_string(RealProcess().Id()));
  return 0;
});

class SaysGoodbye {
 public:
  ~SaysGoodbye() { SayLine("destroyed"); }
};

const SecondProcessRole kLeaver("leaver", [] {
  static const SaysGoodbye goodbye;
  std::atexit([] { SayLine("at exit"); });
  RealProcess().Exit(7);
  return 0;
});

TEST(ProcessTest, IdIsTheOneByWhichItsStarterKnowsIt) {
  SecondProcess teller("id teller");
  EXPECT_EQ(teller.Hear(), std::to_string(teller.id()));
  EXPECT_NE(RealProcess().Id(), teller.id());
}

TEST(ProcessTest, ExecutableIsThisFileInFull) {
  const Result<ExecutablePath> executable = RealProcess().Executable();
  ASSERT_TRUE(executable) << executable.error();
  EXPECT_FALSE(executable.value().truncated);
  const std::filesystem::path path = executable.value().path;
  EXPECT_TRUE(path.is_absolute());
  EXPECT_EQ(path.stem(), "test_platform");
  EXPECT_TRUE(std::filesystem::exists(path));
}

TEST(ProcessTest, EnvironmentIsReadAnewAtEachCall) {
  EXPECT_EQ(RealProcess().EnvironmentVariable(kVariable), std::nullopt);
  {
    const ScopedEnvironment set(kVariable, "C:\\a b=c");
    EXPECT_EQ(RealProcess().EnvironmentVariable(kVariable), "C:\\a b=c");
  }
  {
    const ScopedEnvironment set(kVariable, "");
    EXPECT_EQ(RealProcess().EnvironmentVariable(kVariable), "");
  }
  const std::string long_value(20000, 'x');
  const ScopedEnvironment set(kVariable, long_value);
  EXPECT_EQ(RealProcess().EnvironmentVariable(kVariable), long_value);
}

TEST(ProcessTest, EnvironmentIsNarrowTextInTheProcessCodePage) {
  const std::string utf8 = "caf\xC3\xA9";
  const ScopedEnvironment set(kVariable, utf8);
  const std::string narrow = RealProcess().EnvironmentVariable(kVariable).value_or("");
  const std::filesystem::path path = RealTextEncoding().PathFromNarrow(narrow);
  EXPECT_EQ(path, std::filesystem::path(u8"caf\u00E9"));
}

TEST(ProcessTest, ExitRunsNothingOfTheProgram) {
  SecondProcess leaver("leaver");
  EXPECT_EQ(leaver.Hear(), std::nullopt);
  EXPECT_EQ(leaver.Finish(), 7);
}

TEST(ProcessTest, ApartmentIsEnteredAndLeft) {
  constexpr std::uint32_t kApartmentThreaded = 2;
  EXPECT_EQ(RealProcess().EnterApartment(kApartmentThreaded), 0);
  RealProcess().LeaveApartment();
  EXPECT_EQ(RealProcess().EnterApartment(kApartmentThreaded), 0) << "it was left";
  RealProcess().LeaveApartment();
}

}  // namespace
}  // namespace korvane::platform
