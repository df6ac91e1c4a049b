#include "platform/registry.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/real_os.h"
#include "support/scoped_environment.h"
#include "support/temporary_folder.h"

namespace korvane::platform {
namespace {

constexpr RegistryHive kUser = RegistryHive::kCurrentUser;
const std::wstring kKey = L"Software\\Korvane";

class RegistryFile : public testing::Test {
 protected:
  RegistryFile() { std::filesystem::create_directories(file_.parent_path()); }

  test::TemporaryFolder folder_;
  test::ScopedEnvironment variable_{"XDG_CONFIG_HOME", folder_.path().string()};
  std::filesystem::path file_ = folder_ / "Korvane" / "registry_current_user";
  Registry& registry_ = RealRegistry();
};

TEST_F(RegistryFile, ReadsAsTextAndLeavesNoOtherTraceThanItsLock) {
  ASSERT_TRUE(registry_.WriteDword(kUser, kKey, L"WindowsDiagnosticsEnabled", 1));
  ASSERT_TRUE(registry_.WriteDword(kUser, L"Other", L"\u0416", 0xDEADBEEF));
  ASSERT_TRUE(registry_.WriteDword(kUser, kKey, L"Second", 2));
  EXPECT_EQ(test::ReadBytes(file_),
            "[Software\\Korvane]\n"
            "WindowsDiagnosticsEnabled=dword:00000001\n"
            "Second=dword:00000002\n"
            "[Other]\n"
            "\xD0\x96=dword:deadbeef\n");
  std::vector<std::string> names;
  for (const auto& entry : RealFiles().List(file_.parent_path()).value()) {
    names.push_back(entry.name);
  }
  EXPECT_EQ(names, (std::vector<std::string>{file_.filename(), "registry_current_user.lock"}));
}

TEST_F(RegistryFile, DamageIsReadAroundAndKept) {
  const std::string damaged =
      "\xFF\xFE noise\n"
      "Value=dword:00000009\n"
      "[Software\\Korvane\n"
      "[Software\\Korvane]\r\n"
      "=\n"
      "no equals sign\n"
      "Bad=dword:1z\n"
      "Empty=dword:\n"
      "Long=dword:123456789\n"
      "Value=dword:00000005\r\n"
      "Value=dword:00000006\n"
      "[]\n"
      "Value=dword:7";
  test::WriteBytes(file_, damaged);
  EXPECT_EQ(registry_.ReadDword(kUser, kKey, L"Value").value(), 5U);
  EXPECT_EQ(registry_.ReadDword(kUser, L"", L"Value").value(), 7U);
  for (const wchar_t* other_type : {L"Bad", L"Empty", L"Long", L""}) {
    EXPECT_EQ(registry_.ReadDword(kUser, kKey, other_type).error(), 1630U);
  }
  ASSERT_TRUE(registry_.WriteDword(kUser, kKey, L"Value", 8));
  const std::string after = test::ReadBytes(file_).value();
  EXPECT_NE(after.find("\xFF\xFE noise\nValue=dword:00000009\n[Software\\Korvane\n"),
            std::string::npos);
  EXPECT_NE(after.find("\nValue=dword:00000008\nValue=dword:00000006\n[]\nValue=dword:7\n"),
            std::string::npos);
}

TEST_F(RegistryFile, NameThatNoLineCanHoldIsRefusedOrNotFound) {
  ASSERT_TRUE(registry_.WriteDword(kUser, kKey, L"a", 1));
  const std::string before = test::ReadBytes(file_).value();
  for (const auto& [key, value] : std::vector<std::pair<std::wstring, std::wstring>>{
           {L"a\nb", L"v"}, {kKey, L"a\rb"}, {kKey, L"a=b"}, {kKey, L"[a]"}, {kKey, L"\xD800"}}) {
    EXPECT_FALSE(registry_.WriteDword(kUser, key, value, 1));
    EXPECT_EQ(registry_.ReadDword(kUser, key, value).error(), kRegistryNotFound);
    EXPECT_EQ(registry_.DeleteValue(kUser, key, value).error(), kRegistryNotFound);
  }
  EXPECT_EQ(test::ReadBytes(file_), before);
}

TEST_F(RegistryFile, ReadingMakesNoFolder) {
  std::filesystem::remove_all(file_.parent_path());
  EXPECT_FALSE(registry_.ReadDword(kUser, kKey, L"v").ok());
  EXPECT_FALSE(std::filesystem::exists(file_.parent_path()));
}

TEST_F(RegistryFile, LiesBelowHomeWithoutAnAbsoluteConfigurationFolder) {
  for (const auto& configured : {std::optional<std::string>(), std::optional<std::string>(""),
                                 std::optional<std::string>("relative/folder")}) {
    const test::TemporaryFolder home;
    const test::ScopedEnvironment no_folder("XDG_CONFIG_HOME", configured);
    const test::ScopedEnvironment new_home("HOME", home.path().string());
    ASSERT_TRUE(registry_.WriteDword(kUser, kKey, L"v", 3));
    EXPECT_TRUE(std::filesystem::exists(home / ".config/Korvane/registry_current_user"));
    EXPECT_EQ(registry_.ReadDword(kUser, kKey, L"v").value(), 3U);
  }
  const test::ScopedEnvironment no_folder("XDG_CONFIG_HOME", std::nullopt);
  const test::ScopedEnvironment no_home("HOME", std::nullopt);
  EXPECT_EQ(registry_.ReadDword(kUser, kKey, L"v").error(), kRegistryNotFound);
  EXPECT_FALSE(registry_.WriteDword(kUser, kKey, L"v", 3));
}

TEST_F(RegistryFile, ProcessesThatWriteAtOnceLoseNothing) {
  constexpr int kProcesses = 4;
  constexpr int kValues = 10;
  for (int process = 0; process < kProcesses; ++process) {
    if (::fork() == 0) {
      bool all = true;
      for (int value = 0; value < kValues; ++value) {
        const std::wstring name = std::to_wstring(process) + L"-" + std::to_wstring(value);
        all = registry_.WriteDword(kUser, kKey, name, 1).ok() && all;
      }
      ::_exit(all ? 0 : 1);
    }
  }
  for (int process = 0; process < kProcesses; ++process) {
    int status = 0;
    ASSERT_GT(::wait(&status), 0);
    EXPECT_EQ(status, 0);
  }
  for (int process = 0; process < kProcesses; ++process) {
    for (int value = 0; value < kValues; ++value) {
      const std::wstring name = std::to_wstring(process) + L"-" + std::to_wstring(value);
      EXPECT_TRUE(registry_.ReadDword(kUser, kKey, name).ok());
    }
  }
}

}  // namespace
}  // namespace korvane::platform
