#include "system/vpn_config_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "platform/os.h"
#include "support/counting_os.h"
#include "support/recording_error_stream.h"
#include "support/scoped_environment.h"
#include "support/temporary_folder.h"

namespace korvane::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

const std::string kConfig = R"({"log":{},"inbounds":[],"outbounds":[]})";

class ConfigStoreTest : public ::testing::Test {
 protected:
  ConfigStoreTest() : app_data_("APPDATA", folder_.path().string()) {
    platform::Os os = platform::RealOs();
    os.error_stream = &errors_;
    scoped_os_.emplace(os);
  }

  std::filesystem::path Stored(const char* name) const { return folder_ / "Korvane" / name; }

  TemporaryFolder folder_;
  ScopedEnvironment app_data_;
  RecordingErrorStream errors_;

 private:
  std::optional<platform::ScopedOs> scoped_os_;
};

TEST_F(ConfigStoreTest, ValidityIsATextualTest) {
  const struct {
    const char *why, *text;
    bool valid;
  } rows[] = {
      {"empty", "", false},
      {"a bare object", "{}", false},
      {"all three keys", R"({"log" "inbounds" "outbounds"})", true},
      {"keys without quotes", "{log inbounds outbounds}", false},
      {"no brace", R"("log" "inbounds" "outbounds")", false},
      {"one brace too many", R"({{"log" "inbounds" "outbounds"})", false},
      {"closing ahead of opening", R"(}"log" "inbounds" "outbounds"{)", true},
      {"a brace in a string counts", R"({"log":"}" "inbounds" "outbounds"})", false},
      {"no outbounds", R"({"log" "inbounds"})", false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ValidateVpnConfig(row.text), row.valid) << row.why;
  }
}

TEST_F(ConfigStoreTest, FileIsTheTextUnderAMaskThatRepeatsAfter256Bytes) {
  const std::string text = kConfig + std::string("\x80\xFF\0", 3) + std::string(300, 'A');
  ASSERT_TRUE(SaveVpnConfigFile(text));
  const std::string stored = ReadBytes(Stored("vpn_config.dat")).value();
  ASSERT_EQ(stored.size(), text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto mask = static_cast<unsigned char>(i - 0x3C);
    ASSERT_EQ(static_cast<unsigned char>(stored[i]), static_cast<unsigned char>(text[i]) ^ mask)
        << i;
  }
  EXPECT_EQ(stored[0x3C], text[0x3C]) << "one byte of each 256 stands in clear";
  EXPECT_EQ(ReadBytes(Stored("vpn_config.bak")), stored);
  EXPECT_EQ(LoadVpnConfigFile(), text);
  EXPECT_THAT(errors_.lines(), IsEmpty());
}

TEST_F(ConfigStoreTest, InvalidTextTouchesNoFile) {
  ASSERT_TRUE(SaveVpnConfigFile(kConfig));
  const auto stored = ReadBytes(Stored("vpn_config.dat"));
  EXPECT_FALSE(SaveVpnConfigFile("{}"));
  EXPECT_EQ(ReadBytes(Stored("vpn_config.dat")), stored);
}

TEST_F(ConfigStoreTest, BackupIsTakenBehindTheWriteAndUsedOnlyForAFileThatIsGone) {
  ASSERT_TRUE(SaveVpnConfigFile(kConfig));
  const std::string second = kConfig + " ";
  ASSERT_TRUE(SaveVpnConfigFile(second));
  const auto good = ReadBytes(Stored("vpn_config.bak"));

  for (const std::string& damaged : {std::string(), std::string("short")}) {
    WriteBytes(Stored("vpn_config.dat"), damaged);
    EXPECT_EQ(LoadVpnConfigFile(), "");
    EXPECT_EQ(ReadBytes(Stored("vpn_config.dat")), damaged);
    EXPECT_EQ(ReadBytes(Stored("vpn_config.bak")), good);
  }
  std::filesystem::remove(Stored("vpn_config.dat"));
  EXPECT_EQ(LoadVpnConfigFile(), second);
  EXPECT_EQ(ReadBytes(Stored("vpn_config.dat")), good);

  std::filesystem::remove(Stored("vpn_config.dat"));
  std::filesystem::remove(Stored("vpn_config.bak"));
  EXPECT_EQ(LoadVpnConfigFile(), "");
  EXPECT_THAT(errors_.lines(), IsEmpty()) << "a file that isn't there is no error";
}

TEST_F(ConfigStoreTest, WithoutAnApplicationDataFolderTheWorkingFolderServes) {
  const TemporaryFolder working;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(working.path());
  for (const auto& value : {std::optional<std::string>(), std::optional<std::string>("")}) {
    const ScopedEnvironment unset("APPDATA", value);
    EXPECT_EQ(GetVpnConfigPath(), "./vpn_config.dat");
    EXPECT_TRUE(SaveVpnConfigFile(kConfig));
    EXPECT_TRUE(ReadBytes(working / "vpn_config.dat"));
    EXPECT_TRUE(ReadBytes(working / "vpn_config.bak"));
    EXPECT_EQ(LoadVpnConfigFile(), kConfig);
  }
  std::filesystem::current_path(before);
}

TEST_F(ConfigStoreTest, WhatStandsInTheWayIsToldAndSurvived) {
  {
    const auto making = [](const Operation& o) { return o.name == "Files.CreateDirectories"; };
    const CountingOs failing(platform::os(), FailOnce(1, making));
    const platform::ScopedOs in_force(failing.os());
    EXPECT_FALSE(EnsureConfigDirectory());
    EXPECT_THAT(errors_.lines(),
                ElementsAre(StartsWith("Error creating config directory: create_directories")));
  }
  WriteBytes(folder_ / "Korvane", "a file where the folder should be");
  EXPECT_TRUE(EnsureConfigDirectory()) << "whatever stands there counts";
  EXPECT_FALSE(SaveVpnConfigFile(kConfig));
  EXPECT_EQ(LoadVpnConfigFile(), "");
  std::filesystem::remove(folder_ / "Korvane");

  ASSERT_TRUE(SaveVpnConfigFile(kConfig));
  std::filesystem::remove(Stored("vpn_config.bak"));
  std::filesystem::create_directory(Stored("vpn_config.bak"));
  errors_.Clear();
  EXPECT_TRUE(SaveVpnConfigFile(kConfig)) << "a failed backup costs nothing";
  EXPECT_THAT(errors_.lines(), ElementsAre(StartsWith("Error creating backup: copy_file")));

  std::filesystem::remove(Stored("vpn_config.dat"));
  errors_.Clear();
  EXPECT_EQ(LoadVpnConfigFile(), "");
  EXPECT_THAT(errors_.lines(), ElementsAre(StartsWith("Error restoring from backup: copy_file")));
}

TEST_F(ConfigStoreTest, WhatIsThrownIsToldAndRefused) {
  CountingPlan plan;
  plan.counted = [](const Operation& o) {
    return o.name == "Files.Open" ? throw std::runtime_error("no memory") : false;
  };
  const CountingOs throwing(platform::os(), plan);
  const platform::ScopedOs in_force(throwing.os());
  EXPECT_FALSE(SaveVpnConfigFile(kConfig));
  EXPECT_EQ(LoadVpnConfigFile(), "");
  EXPECT_THAT(errors_.lines(), ElementsAre("Error saving VPN config: no memory",
                                           "Error loading VPN config: no memory"));
}

TEST_F(ConfigStoreTest, ProfileFolderInAnotherScriptWorks) {
  const TemporaryFolder folder(std::filesystem::path(u8"caf\u00E9"));
  const std::string name = platform::os().text->NarrowFromPath(folder.path());
  const auto as_utf8 = folder.path().u8string();
  const ScopedEnvironment app_data("APPDATA", std::string(as_utf8.begin(), as_utf8.end()));
  EXPECT_TRUE(SaveVpnConfigFile(kConfig)) << name;
  EXPECT_TRUE(ReadBytes(folder / "Korvane" / "vpn_config.dat"));
  EXPECT_EQ(LoadVpnConfigFile(), kConfig);
}

}  // namespace
}  // namespace korvane::test
