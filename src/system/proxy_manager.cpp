#include "system/proxy_manager.h"

#include <optional>

#include "platform/os.h"

namespace korvane {

namespace {

using platform::os;

std::string ToUtf8(const std::wstring& text) { return os().text->WideToUtf8Lossy(text); }

}  // namespace

const wchar_t kLanBypassList[] =
    L"localhost;127.*;10.*;172.16.*;172.17.*;172.18.*;172.19.*;172.20.*;172.21.*;172.22.*;"
    L"172.23.*;172.24.*;172.25.*;172.26.*;172.27.*;172.28.*;172.29.*;172.30.*;172.31.*;"
    L"192.168.*;169.254.*;100.*;<local>;[::1];[fc00::*];[fd00::*];[fe80::*];[ff00::*]";

static_assert(sizeof(kLanBypassList) / sizeof(wchar_t) - 1 == 244,
              "the bypass list goes to the system exactly as it stands");

bool EnableSystemProxy(const std::string& host, int port) {
  const std::string server = host + ":" + std::to_string(port);
  platform::WriteErrorLine("[ProxyManager] Enabling system proxy: " + server);
  // The proxy bit alone: no direct connection beside it, no detection, no script.
  const auto stored = os().proxy_settings->Store(
      platform::kProxyTypeProxy, os().text->Utf8ToWide(server).value_or(std::wstring()),
      kLanBypassList);
  if (!stored) {
    platform::WriteErrorLine("[ProxyManager] Failed to enable proxy. Error: " +
                             std::to_string(stored.error()));
    return false;
  }
  os().proxy_settings->AnnounceChange();
  platform::WriteErrorLine("[ProxyManager] System proxy enabled with LAN bypass list");
  return true;
}

bool DisableSystemProxy() {
  platform::WriteErrorLine("[ProxyManager] Disabling system proxy");
  if (!os().proxy_settings->Store(platform::kProxyTypeDirect, L"", L"")) {
    return false;
  }
  os().proxy_settings->AnnounceChange();
  platform::WriteErrorLine("[ProxyManager] System proxy disabled");
  return true;
}

SystemProxyState QuerySystemProxy() {
  const auto settings = os().proxy_settings->Query();
  if (!settings) {
    platform::WriteErrorLine("[ProxyManager] InternetQueryOption failed. Error: " +
                             std::to_string(settings.error()));
    return {};
  }
  const platform::ConnectionProxy& proxy = settings.value();
  SystemProxyState state;
  state.enabled = (proxy.flags & platform::kProxyTypeProxy) != 0;
  state.server = ToUtf8(proxy.server);
  state.bypass = ToUtf8(proxy.bypass);
  state.autoConfigEnabled = (proxy.flags & platform::kProxyTypeAutoProxyUrl) != 0;
  state.autoConfigUrl = ToUtf8(proxy.auto_config_url);
  return state;
}

}  // namespace korvane
