#include "platform/proxy_settings.h"

#include <gtest/gtest.h>

#include "platform/real_os.h"
#include "support/scoped_environment.h"
#include "support/temporary_folder.h"

namespace korvane::platform {
namespace {

class ProxySettingsFile : public testing::Test {
 protected:
  ProxySettingsFile() { std::filesystem::create_directories(file_.parent_path()); }

  test::TemporaryFolder folder_;
  test::ScopedEnvironment variable_{"XDG_CONFIG_HOME", folder_.path().string()};
  std::filesystem::path file_ = folder_ / "Korvane" / "proxy_settings";
  ProxySettings& proxy_ = RealProxySettings();
};

TEST_F(ProxySettingsFile, HoldsOneNamedTextInALine) {
  ASSERT_TRUE(proxy_.Store(kProxyTypeProxy, L"127.0.0.1:10081", L"localhost;<local>;[::1]"));
  EXPECT_EQ(test::ReadBytes(file_),
            "flags=2\nserver=127.0.0.1:10081\nbypass=localhost;<local>;[::1]\n");
  EXPECT_EQ(proxy_.Query().value().bypass, L"localhost;<local>;[::1]");
  ASSERT_TRUE(proxy_.Store(kProxyTypeDirect, L"", L""));
  EXPECT_EQ(test::ReadBytes(file_), "flags=1\nserver=\nbypass=\n");
}

TEST_F(ProxySettingsFile, StoringKeepsTheConfigurationUrlAndForeignLines) {
  test::WriteBytes(file_, "# mine\nauto_config_url=http://h/\xC3\xA9.pac\nflags=4\nserver=old:1\n");
  const ConnectionProxy before = proxy_.Query().value();
  EXPECT_EQ(before.flags, kProxyTypeAutoProxyUrl);
  EXPECT_EQ(before.auto_config_url, L"http://h/\u00E9.pac");
  ASSERT_TRUE(proxy_.Store(kProxyTypeProxy, L"new:2", L""));
  EXPECT_EQ(test::ReadBytes(file_),
            "# mine\nauto_config_url=http://h/\xC3\xA9.pac\nflags=2\nserver=new:2\nbypass=\n");
}

TEST_F(ProxySettingsFile, DamageReadsAsFarAsItMakesSense) {
  struct Row {
    const char* why;
    std::string text;
    std::uint32_t flags;
    const wchar_t* server;
  };
  const Row rows[] = {
      {"empty", "", kProxyTypeDirect, L""},
      {"cut in the flags", "fla", kProxyTypeDirect, L""},
      {"flags that are no number", "flags=2x\nserver=a:1\n", kProxyTypeDirect, L"a:1"},
      {"flags too large", "flags=99999999999\nserver=a:1\n", kProxyTypeDirect, L"a:1"},
      {"a server that is no UTF-8", "flags=2\nserver=a\xFF\n", kProxyTypeProxy, L""},
      {"line ends of Windows", "flags=2\r\nserver=a:1\r\n", kProxyTypeProxy, L"a:1"},
      {"NULs and noise", std::string("\0\n\xFF=\nserver=a:1", 15), kProxyTypeDirect, L"a:1"},
      {"the first of like lines", "server=a:1\nserver=b:2\n", kProxyTypeDirect, L"a:1"},
      {"no line end for a long time", "server=" + std::string(1'000'000, 'x').replace(0, 1, "\n"),
       kProxyTypeDirect, L""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    test::WriteBytes(file_, row.text);
    const Result<ConnectionProxy> read = proxy_.Query();
    ASSERT_TRUE(read);
    EXPECT_EQ(read.value().flags, row.flags);
    EXPECT_EQ(read.value().server, row.server);
  }
}

TEST_F(ProxySettingsFile, TextThatNoLineCanHoldIsRefusedAndNothingChanges) {
  ASSERT_TRUE(proxy_.Store(kProxyTypeProxy, L"a:1", L""));
  for (const wchar_t* text : {L"a\nflags=1", L"a\r", L"\xD800"}) {
    EXPECT_FALSE(proxy_.Store(kProxyTypeDirect, text, L""));
    EXPECT_FALSE(proxy_.Store(kProxyTypeDirect, L"", text));
  }
  EXPECT_EQ(proxy_.Query().value().server, L"a:1");
}

TEST_F(ProxySettingsFile, UnreadableFileIsAFailure) {
  std::filesystem::create_directory(file_);
  EXPECT_FALSE(proxy_.Query().ok());
  EXPECT_FALSE(proxy_.Store(kProxyTypeProxy, L"a:1", L"").ok());
}

}  // namespace
}  // namespace korvane::platform
