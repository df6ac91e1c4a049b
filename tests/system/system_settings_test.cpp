#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/os.h"
#include "support/counting_os.h"
#include "support/recording_error_stream.h"
#include "support/user_settings.h"
#include "system/elevated_autostart.h"
#include "system/proxy_manager.h"

namespace korvane::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Runs nothing; keeps the command lines.
class FakeCommand : public platform::ScheduledCommand {
 public:
  std::vector<int> results;  // exit codes of the next runs; negative: can't be started
  std::vector<std::wstring> lines;
  platform::Result<std::uint32_t> Run(const std::wstring& command_line) override {
    lines.push_back(command_line);
    const int result = results.at(lines.size() - 1);
    if (result < 0) {
      return platform::Result<std::uint32_t>::Fail(2);
    }
    return static_cast<std::uint32_t>(result);
  }
};

class SystemSettingsTest : public ::testing::Test {
 protected:
  SystemSettingsTest() {
    platform::Os os = platform::RealOs();
    os.error_stream = &errors_;
    os.scheduled_command = &command_;
    scoped_os_.emplace(os);
  }

  static std::wstring CreateLine() {
    return L"schtasks.exe /Create /TN \"Korvane Elevated\" /TR \"\\\"" +
           platform::os().process->Executable().value().path + L"\\\"\" /SC ONLOGON /RL HIGHEST /F";
  }

  ScopedUserSettings settings_;
  RecordingErrorStream errors_;
  FakeCommand command_;

 private:
  std::optional<platform::ScopedOs> scoped_os_;
};

constexpr wchar_t kQuery[] = L"schtasks.exe /Query /TN \"Korvane Elevated\"";
constexpr wchar_t kDelete[] = L"schtasks.exe /Delete /TN \"Korvane Elevated\" /F";
constexpr wchar_t kRun[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Run";

TEST_F(SystemSettingsTest, QueryGoesByTheExitCodeAlone) {
  command_.results = {0, 1, -1};
  EXPECT_TRUE(IsElevatedAutostartEnabled());
  EXPECT_FALSE(IsElevatedAutostartEnabled());
  EXPECT_FALSE(IsElevatedAutostartEnabled());
  EXPECT_THAT(command_.lines, ElementsAre(kQuery, kQuery, kQuery));
  EXPECT_THAT(errors_.lines(), IsEmpty());
}

TEST_F(SystemSettingsTest, EnablingReplacesTheTaskAndThenTheOlderValues) {
  using platform::RegistryHive;
  for (const RegistryHive hive : {RegistryHive::kCurrentUser, RegistryHive::kLocalMachine}) {
    for (const wchar_t* value : {L"Korvane", L"Other"}) {
      ASSERT_TRUE(platform::os().registry->WriteDword(hive, kRun, value, 1));
    }
  }
  const auto absent = [](RegistryHive hive, const wchar_t* value) {
    return !platform::os().registry->ReadDword(hive, kRun, value);
  };
  command_.results = {7, -1, 0};
  EXPECT_FALSE(EnableElevatedAutostart());
  EXPECT_FALSE(EnableElevatedAutostart());
  EXPECT_THAT(errors_.lines(),
              ElementsAre("[ProxyManager] schtasks returned error code 7",
                          "[ProxyManager] Failed to run schtasks for autostart creation"));
  EXPECT_FALSE(absent(RegistryHive::kCurrentUser, L"Korvane"));
  EXPECT_TRUE(EnableElevatedAutostart());
  EXPECT_THAT(command_.lines, ElementsAre(CreateLine(), CreateLine(), CreateLine()));
  for (const RegistryHive hive : {RegistryHive::kCurrentUser, RegistryHive::kLocalMachine}) {
    EXPECT_TRUE(absent(hive, L"Korvane"));
    EXPECT_FALSE(absent(hive, L"Other"));
  }
}

TEST_F(SystemSettingsTest, DisablingDeletesOnlyATaskThatIsThere) {
  command_.results = {1, 0, 0, 0, 5, 0, -1};
  EXPECT_TRUE(DisableElevatedAutostart());
  EXPECT_THAT(command_.lines, ElementsAre(kQuery));
  EXPECT_TRUE(DisableElevatedAutostart());
  EXPECT_FALSE(DisableElevatedAutostart());
  EXPECT_FALSE(DisableElevatedAutostart());
  EXPECT_THAT(command_.lines,
              ElementsAre(kQuery, kQuery, kDelete, kQuery, kDelete, kQuery, kDelete));
  EXPECT_THAT(errors_.lines(),
              ElementsAre("[ProxyManager] schtasks deletion error code 5",
                          "[ProxyManager] Failed to run schtasks for autostart deletion"));
}

TEST_F(SystemSettingsTest, ProxyIsPointedAndSetBackToDirect) {
  EXPECT_TRUE(EnableSystemProxy("127.0.0.1", 10081));
  SystemProxyState state = QuerySystemProxy();
  EXPECT_TRUE(state.enabled);
  EXPECT_EQ(state.server, "127.0.0.1:10081");
  EXPECT_FALSE(state.autoConfigEnabled);
  EXPECT_EQ(platform::os().proxy_settings->Query().value().flags, 2U) << "the proxy bit alone";
  EXPECT_TRUE(DisableSystemProxy());
  state = QuerySystemProxy();
  EXPECT_FALSE(state.enabled);
  EXPECT_EQ(state.server, "");
  EXPECT_EQ(platform::os().proxy_settings->Query().value().flags, 1U);
  EXPECT_THAT(
      errors_.lines(),
      ElementsAre("[ProxyManager] Enabling system proxy: 127.0.0.1:10081",
                  "[ProxyManager] System proxy enabled with LAN bypass list",
                  "[ProxyManager] Disabling system proxy", "[ProxyManager] System proxy disabled"));
}

TEST_F(SystemSettingsTest, AQuestionThatFailsIsTold) {
  const auto failing = [](const auto& ask) {
    const CountingOs counting(platform::os(), FailOnce(1));
    const platform::ScopedOs in_force(counting.os());
    ask();
  };
  failing([] { EXPECT_FALSE(QuerySystemProxy().enabled); });
  failing([] { EXPECT_FALSE(EnableElevatedAutostart()); });
  EXPECT_THAT(errors_.lines(),
              ElementsAre("[ProxyManager] InternetQueryOption failed. Error: 5",
                          "[ProxyManager] Failed to get executable path for autostart. Error: 5"));
}

}  // namespace
}  // namespace korvane::test
