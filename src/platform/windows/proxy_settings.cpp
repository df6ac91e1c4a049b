#include "platform/proxy_settings.h"

#include <windows.h>

#include <wininet.h>

#include <array>

#include "platform/no_destructor.h"
#include "platform/real_os.h"

namespace korvane::platform {
namespace {

static_assert(sizeof(INTERNET_PER_CONN_OPTION_LISTW) == 32);

// A list of options of the default (LAN) connection, over options that stay where they are.
template <std::size_t Count>
INTERNET_PER_CONN_OPTION_LISTW ListOf(std::array<INTERNET_PER_CONN_OPTIONW, Count>& options) {
  INTERNET_PER_CONN_OPTION_LISTW list{};
  list.dwSize = sizeof(list);
  list.pszConnection = nullptr;
  list.dwOptionCount = Count;
  list.pOptions = options.data();
  return list;
}

INTERNET_PER_CONN_OPTIONW TextOption(DWORD option, const std::wstring& text) {
  INTERNET_PER_CONN_OPTIONW result{};
  result.dwOption = option;
  result.Value.pszValue = const_cast<wchar_t*>(text.c_str());  // NOLINT: it is only read
  return result;
}

// Copies a text that the system gave, and releases it.
std::wstring TakeText(wchar_t* text) {
  if (text == nullptr) {
    return {};
  }
  std::wstring copy = text;
  ::GlobalFree(text);
  return copy;
}

class WindowsProxySettings final : public ProxySettings {
 public:
  Status Store(std::uint32_t flags, const std::wstring& server,
               const std::wstring& bypass) override {
    std::array<INTERNET_PER_CONN_OPTIONW, 3> options{};
    options[0].dwOption = INTERNET_PER_CONN_FLAGS;
    options[0].Value.dwValue = flags;
    options[1] = TextOption(INTERNET_PER_CONN_PROXY_SERVER, server);
    options[2] = TextOption(INTERNET_PER_CONN_PROXY_BYPASS, bypass);
    INTERNET_PER_CONN_OPTION_LISTW list = ListOf(options);
    return ::InternetSetOptionW(nullptr, INTERNET_OPTION_PER_CONNECTION_OPTION, &list,
                                sizeof(list)) != 0
               ? Status::Ok()
               : Status::Fail(::GetLastError());
  }

  void AnnounceChange() override {
    ::InternetSetOptionW(nullptr, INTERNET_OPTION_SETTINGS_CHANGED, nullptr, 0);
    ::InternetSetOptionW(nullptr, INTERNET_OPTION_REFRESH, nullptr, 0);
    ::SendNotifyMessageW(HWND_BROADCAST, WM_SETTINGCHANGE, 0, 0);
  }

  Result<ConnectionProxy> Query() override {
    std::array<INTERNET_PER_CONN_OPTIONW, 4> options{};
    options[0].dwOption = INTERNET_PER_CONN_FLAGS;
    options[1].dwOption = INTERNET_PER_CONN_PROXY_SERVER;
    options[2].dwOption = INTERNET_PER_CONN_PROXY_BYPASS;
    options[3].dwOption = INTERNET_PER_CONN_AUTOCONFIG_URL;
    INTERNET_PER_CONN_OPTION_LISTW list = ListOf(options);
    DWORD size = sizeof(list);
    if (::InternetQueryOptionW(nullptr, INTERNET_OPTION_PER_CONNECTION_OPTION, &list, &size) == 0) {
      return Result<ConnectionProxy>::Fail(::GetLastError());
    }
    return ConnectionProxy{.flags = options[0].Value.dwValue,
                           .server = TakeText(options[1].Value.pszValue),
                           .bypass = TakeText(options[2].Value.pszValue),
                           .auto_config_url = TakeText(options[3].Value.pszValue)};
  }
};

}  // namespace

ProxySettings& RealProxySettings() {
  static NoDestructor<WindowsProxySettings> settings;
  return *settings;
}

}  // namespace korvane::platform
