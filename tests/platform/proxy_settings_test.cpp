#include "platform/proxy_settings.h"

#include <gtest/gtest.h>

#include "platform/real_os.h"
#include "support/user_settings.h"

namespace korvane::platform {
namespace {

class ProxySettingsTest : public testing::Test {
 protected:
  ConnectionProxy Query() {
    const Result<ConnectionProxy> proxy = proxy_.Query();
    EXPECT_TRUE(proxy) << proxy.error();
    return proxy ? proxy.value() : ConnectionProxy{};
  }

  test::ScopedUserSettings settings_;
  ProxySettings& proxy_ = RealProxySettings();
};

TEST_F(ProxySettingsTest, FreshUserGoesDirect) {
  const ConnectionProxy fresh = Query();
  EXPECT_EQ(fresh.flags & (kProxyTypeProxy | kProxyTypeAutoProxyUrl), 0U);
  EXPECT_EQ(fresh.server, L"");
  EXPECT_EQ(fresh.bypass, L"");
  EXPECT_EQ(fresh.auto_config_url, L"");
}

// The bypass list is not asked for here: Wine takes it and keeps none.
TEST_F(ProxySettingsTest, StoredServerIsReadBackAndEmptyTextsTakeItAway) {
  ASSERT_TRUE(proxy_.Store(kProxyTypeProxy, L"127.0.0.1:10081", L"localhost;<local>;[::1]"));
  proxy_.AnnounceChange();
  EXPECT_EQ(Query().flags & kProxyTypeProxy, kProxyTypeProxy);
  EXPECT_EQ(Query().server, L"127.0.0.1:10081");

  ASSERT_TRUE(proxy_.Store(kProxyTypeDirect, L"", L""));
  proxy_.AnnounceChange();
  EXPECT_EQ(Query().flags & kProxyTypeProxy, 0U);
  EXPECT_EQ(Query().server, L"");
  EXPECT_EQ(Query().bypass, L"");
}

}  // namespace
}  // namespace korvane::platform
