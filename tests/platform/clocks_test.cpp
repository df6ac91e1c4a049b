#include "platform/clocks.h"

#include <gtest/gtest.h>

#include "platform/real_os.h"

namespace korvane::platform {
namespace {

constexpr std::int64_t kStartOf2024Ms = 1'704'067'200'000;
constexpr std::int64_t kStartOf2100Ms = 4'102'444'800'000;

TEST(Clocks, WallClockIsInMillisecondsSinceTheUnixEpoch) {
  const std::int64_t now = RealClocks().UnixMilliseconds();
  EXPECT_GT(now, kStartOf2024Ms);
  EXPECT_LT(now, kStartOf2100Ms);
}

TEST(Clocks, SleepLastsAtLeastItsTimeOnTheSteadyClock) {
  const std::int64_t before = RealClocks().SteadyNanoseconds();
  RealClocks().SleepMilliseconds(20);
  const std::int64_t after = RealClocks().SteadyNanoseconds();
  EXPECT_GE(after - before, 19'000'000);  // a timer may end a tick early on Windows
}

}  // namespace
}  // namespace korvane::platform
