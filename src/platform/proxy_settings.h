// proxy_settings.h: the current user's proxy settings of the default (LAN) connection.
//
// Windows: WinINet, option 75 (INTERNET_OPTION_PER_CONNECTION_OPTION) with a null connection name.
// Linux: the file "proxy_settings" in the user's configuration folder ($XDG_CONFIG_HOME, else
// ~/.config, then "Korvane"), replaced by a rename. Any thread; the last writer wins.
#pragma once

#include <cstdint>
#include <string>

#include "platform/result.h"

namespace korvane::platform {

// Bits of the connection's flags.
inline constexpr std::uint32_t kProxyTypeDirect = 1;
inline constexpr std::uint32_t kProxyTypeProxy = 2;
inline constexpr std::uint32_t kProxyTypeAutoProxyUrl = 4;

struct ConnectionProxy {
  std::uint32_t flags = 0;
  std::wstring server;           // empty when absent
  std::wstring bypass;           // empty when absent
  std::wstring auto_config_url;  // empty when absent
};

class ProxySettings {
 public:
  virtual ~ProxySettings() = default;

  // InternetSetOptionW with three options in this order: flags (1), server (2), bypass (3). Empty
  // texts are passed as empty texts, never as null, which would leave the old ones in place.
  virtual Status Store(std::uint32_t flags, const std::wstring& server,
                       const std::wstring& bypass) = 0;

  // Tells the system that the settings changed: options 39 (settings changed) and 37 (refresh) with
  // a null handle, then SendNotifyMessageW(HWND_BROADCAST, WM_SETTINGCHANGE, 0, 0), in this order,
  // their results ignored. Linux: nothing listens.
  virtual void AnnounceChange() = 0;

  // InternetQueryOptionW with four options in this order: flags (1), server (2), bypass (3),
  // configuration URL (4). Each returned text is released, an empty one too.
  virtual Result<ConnectionProxy> Query() = 0;
};

}  // namespace korvane::platform
