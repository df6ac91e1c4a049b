#include "launch/launch_arguments.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/fake_machine.h"

namespace korvane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(LaunchArguments, TheProgramNameIsNoneAndWhatIsNoTextKeepsItsPlace) {
  using Vector = std::vector<std::wstring>;
  auto& arguments = test::FakeMachine::Get().process.arguments;
  const std::wstring lone_surrogate(1, static_cast<wchar_t>(0xD800));
  arguments = Vector{L"korvane.exe", L"--admin-bat-shim", L"", L"x" + lone_surrogate, L"a b\u20AC"};
  EXPECT_THAT(GetCommandLineArguments(),
              ElementsAre("--admin-bat-shim", "", "", "a b\xE2\x82\xAC"));
  for (const auto& none :
       {std::optional(Vector{L"korvane.exe"}), std::optional(Vector()), std::optional<Vector>()}) {
    arguments = none;
    EXPECT_THAT(GetCommandLineArguments(), IsEmpty());
  }
}

TEST(LaunchArguments, FlagsAreMatchedByteForByte) {
  struct Row {
    std::string sentence;
    std::vector<std::string> arguments;
    LaunchFlags flags;
  };
  const Row rows[] = {
      {"nothing", {}, {}},
      {"all of them, anywhere",
       {"x", "--admin-bat-shim", "--takeover-token=AB", "--elevated-restart"},
       {.elevated_restart = true, .admin_bat_shim = true, .takeover_child = true}},
      {"a token without its sign is none", {"--takeover-token"}, {}},
      {"an empty token is one", {"--takeover-token="}, {.takeover_child = true}},
      {"only a beginning counts for the token", {"x--takeover-token=AB"}, {}},
      {"the others must be whole", {"--elevated-restart=1", "--admin-bat-shim "}, {}},
      {"the case counts", {"--Elevated-Restart", "--ADMIN-BAT-SHIM", "--Takeover-token=A"}, {}},
      {"known by name and without meaning", {"--post-install-restart"}, {}},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(ScanLaunchArguments(row.arguments), row.flags) << row.sentence;
  }
}

}  // namespace
}  // namespace korvane
