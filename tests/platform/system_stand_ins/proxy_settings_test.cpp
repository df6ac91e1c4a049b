#include "platform/proxy_settings.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/os.h"
#include "support/windows/system_calls.h"

namespace korvane::platform {

// The slot of this program's import table by which every call of the function goes.
extern decltype(&SendNotifyMessageW) imported_send_notify __asm__("__imp_SendNotifyMessageW");

namespace {

using ::testing::ElementsAre;
using Json = nlohmann::json;

constexpr const wchar_t* kBypass =
    L"localhost;127.*;10.*;172.16.*;172.17.*;172.18.*;172.19.*;172.20.*;172.21.*;172.22.*;172.23.*;"
    L"172.24.*;172.25.*;172.26.*;172.27.*;172.28.*;172.29.*;172.30.*;172.31.*;192.168.*;169.254.*;"
    L"100.*;<local>;[::1];[fc00::*];[fd00::*];[fe80::*];[ff00::*]";

std::string Narrow(const std::wstring& ascii) { return std::string(ascii.begin(), ascii.end()); }

// What was broadcast, and how many calls of the settings library had been made by then.
struct Broadcast {
  HWND window = nullptr;
  UINT message = 0;
  WPARAM parameter = 0;
  LPARAM data = 0;
  std::size_t calls_before = 0;
};

const test::SystemCalls* watched_calls = nullptr;
std::vector<Broadcast> broadcasts;

BOOL WINAPI RecordBroadcast(HWND window, UINT message, WPARAM parameter, LPARAM data) {
  broadcasts.push_back({window, message, parameter, data, watched_calls->All("wininet").size()});
  return FALSE;
}

// Leads the program's broadcasts here for a scope.
class BroadcastsRecorded {
 public:
  explicit BroadcastsRecorded(const test::SystemCalls& calls) {
    watched_calls = &calls;
    Put(&RecordBroadcast);
  }
  ~BroadcastsRecorded() { Put(former_); }
  BroadcastsRecorded(const BroadcastsRecorded&) = delete;
  BroadcastsRecorded& operator=(const BroadcastsRecorded&) = delete;

 private:
  static void Put(decltype(&SendNotifyMessageW) function) {
    DWORD protection = 0;
    VirtualProtect(&imported_send_notify, sizeof(function), PAGE_READWRITE, &protection);
    imported_send_notify = function;
    VirtualProtect(&imported_send_notify, sizeof(function), protection, &protection);
  }

  decltype(&SendNotifyMessageW) former_ = imported_send_notify;
};

class ProxySettingsStandInTest : public testing::Test {
 protected:
  ProxySettings& settings() { return *os().proxy_settings; }
  test::SystemCalls calls_;
};

TEST_F(ProxySettingsStandInTest, BypassListPassesWholeBehindFlagsAndServer) {
  ASSERT_EQ(std::wstring(kBypass).size(), 244U);
  ASSERT_TRUE(settings().Store(kProxyTypeProxy, L"127.0.0.1:10081", kBypass).ok());
  const Json expected = {{"library", "wininet"},
                         {"call", "InternetSetOptionW"},
                         {"handle", false},
                         {"option", 75},
                         {"length", 32},
                         {"size", 32},
                         {"connection", nullptr},
                         {"options",
                          {{{"option", 1}, {"value", 2}},
                           {{"option", 2}, {"text", "127.0.0.1:10081"}},
                           {{"option", 3}, {"text", Narrow(kBypass)}}}}};
  EXPECT_THAT(calls_.All(), ElementsAre(expected));
}

TEST_F(ProxySettingsStandInTest, DirectConnectionPassesEmptyTextsAndNoNullOnes) {
  ASSERT_TRUE(settings().Store(kProxyTypeDirect, L"", L"").ok());
  const Json expected = {
      {{"option", 1}, {"value", 1}}, {{"option", 2}, {"text", ""}}, {{"option", 3}, {"text", ""}}};
  ASSERT_EQ(calls_.All().size(), 1U);
  EXPECT_EQ(calls_.All()[0]["options"], expected);
}

TEST_F(ProxySettingsStandInTest, BroadcastFollowsTheTwoNotifications) {
  const BroadcastsRecorded recorded(calls_);
  settings().AnnounceChange();
  const auto made = calls_.All("wininet");
  ASSERT_EQ(made.size(), 2U);
  for (const Json& call : made) {
    EXPECT_EQ(call["handle"], false);
    EXPECT_EQ(call["buffer"], false);
    EXPECT_EQ(call["length"], 0);
  }
  EXPECT_EQ(made[0]["option"], 39);
  EXPECT_EQ(made[1]["option"], 37);
  ASSERT_EQ(broadcasts.size(), 1U);
  EXPECT_EQ(broadcasts[0].window, HWND_BROADCAST);
  EXPECT_EQ(broadcasts[0].message, 0x1AU);
  EXPECT_EQ(broadcasts[0].parameter, 0U);
  EXPECT_EQ(broadcasts[0].data, 0);
  EXPECT_EQ(broadcasts[0].calls_before, 2U);
}

TEST_F(ProxySettingsStandInTest, RefusalOfTheSystemIsAnErrorWithItsNumber) {
  calls_.Tell("wininet.fail_store=5\nwininet.fail_query=12\n");
  EXPECT_EQ(settings().Store(kProxyTypeProxy, L"127.0.0.1:1", L"").error(), 5U);
  EXPECT_EQ(settings().Query().error(), 12U);
}

TEST_F(ProxySettingsStandInTest, QueryAsksForFourOptionsAndTakesTheScriptsAddress) {
  calls_.Tell("wininet.flags=5\nwininet.auto_config_url=http://wpad/x.pac\nwininet.bypass=\n");
  const Result<ConnectionProxy> proxy = settings().Query();
  ASSERT_TRUE(proxy.ok());
  EXPECT_EQ(proxy.value().flags, kProxyTypeDirect | kProxyTypeAutoProxyUrl);
  EXPECT_EQ(proxy.value().auto_config_url, L"http://wpad/x.pac");
  EXPECT_EQ(proxy.value().server, L"") << "never set: comes back null";
  EXPECT_EQ(proxy.value().bypass, L"") << "set empty: comes back empty";
  const Json expected = {{{"option", 1}}, {{"option", 2}}, {{"option", 3}}, {{"option", 4}}};
  ASSERT_EQ(calls_.All().size(), 1U);
  EXPECT_EQ(calls_.All()[0]["options"], expected);
}

}  // namespace
}  // namespace korvane::platform
