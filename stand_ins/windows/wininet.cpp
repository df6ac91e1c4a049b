// The stand-in for wininet.dll: the per-connection options, kept whole for the life of the process,
// the bypass list and the script's address included, and the two notifications.
//
// Settings: wininet.flags, wininet.server, wininet.bypass, wininet.auto_config_url (what stands
// there before the program sets anything); wininet.fail_store, wininet.fail_query (the error with
// which option 75 fails).
#include <windows.h>

#include <wininet.h>

#include <cwchar>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "system_calls.h"

namespace korvane::stand_in {

namespace {

constexpr const char* kLibrary = "wininet";

// The texts of the default connection by their option number.
class Connection {
 public:
  static Connection& Default() {
    static Connection connection;
    return connection;
  }

  void Set(const INTERNET_PER_CONN_OPTIONW& option) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (option.dwOption == INTERNET_PER_CONN_FLAGS) {
      flags_ = option.Value.dwValue;
    } else if (option.Value.pszValue != nullptr) {  // a null one leaves what is there
      texts_[option.dwOption] = option.Value.pszValue;
    }
  }

  void Get(INTERNET_PER_CONN_OPTIONW& option) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (option.dwOption == INTERNET_PER_CONN_FLAGS) {
      option.Value.dwValue = flags_;
      return;
    }
    const auto text = texts_.find(option.dwOption);
    option.Value.pszValue = text == texts_.end() ? nullptr : Copy(text->second);
  }

 private:
  Connection() : flags_(NumberSetting("wininet.flags").value_or(PROXY_TYPE_DIRECT)) {
    Preset(INTERNET_PER_CONN_PROXY_SERVER, "wininet.server");
    Preset(INTERNET_PER_CONN_PROXY_BYPASS, "wininet.bypass");
    Preset(INTERNET_PER_CONN_AUTOCONFIG_URL, "wininet.auto_config_url");
  }

  void Preset(DWORD option, const char* key) {
    if (const std::optional<std::wstring> text = Setting(key)) {
      texts_[option] = *text;
    }
  }

  // The caller frees it with GlobalFree.
  static wchar_t* Copy(const std::wstring& text) {
    const std::size_t bytes = (text.size() + 1) * sizeof(wchar_t);
    auto* copy = static_cast<wchar_t*>(GlobalAlloc(GMEM_FIXED, bytes));
    if (copy != nullptr) {
      std::wmemcpy(copy, text.c_str(), text.size() + 1);
    }
    return copy;
  }

  std::mutex mutex_;
  DWORD flags_;
  std::map<DWORD, std::wstring> texts_;
};

Json Described(const INTERNET_PER_CONN_OPTION_LISTW& list, bool with_values) {
  Json options = Json::array();
  for (DWORD i = 0; i < list.dwOptionCount; ++i) {
    const INTERNET_PER_CONN_OPTIONW& option = list.pOptions[i];
    Json described = {{"option", option.dwOption}};
    if (with_values && option.dwOption == INTERNET_PER_CONN_FLAGS) {
      described["value"] = option.Value.dwValue;
    } else if (with_values) {
      described["text"] = TextOrNull(option.Value.pszValue);
    }
    options.push_back(described);
  }
  return {
      {"size", list.dwSize}, {"connection", TextOrNull(list.pszConnection)}, {"options", options}};
}

void Record(const char* call, HINTERNET handle, DWORD option, const void* buffer, DWORD length,
            bool with_values) {
  Json arguments = {{"handle", handle != nullptr}, {"option", option}, {"length", length}};
  if (option == INTERNET_OPTION_PER_CONNECTION_OPTION && buffer != nullptr) {
    arguments.update(
        Described(*static_cast<const INTERNET_PER_CONN_OPTION_LISTW*>(buffer), with_values));
  } else {
    arguments["buffer"] = buffer != nullptr;
  }
  RecordCall(kLibrary, call, arguments);
}

BOOL Fail(DWORD error) {
  SetLastError(error);
  return FALSE;
}

}  // namespace

extern "C" BOOL WINAPI RecordedSetOption(HINTERNET handle, DWORD option, void* buffer,
                                         DWORD length) {
  Record("InternetSetOptionW", handle, option, buffer, length, true);
  if (option == INTERNET_OPTION_SETTINGS_CHANGED || option == INTERNET_OPTION_REFRESH) {
    return TRUE;
  }
  if (option != INTERNET_OPTION_PER_CONNECTION_OPTION || buffer == nullptr) {
    return Fail(ERROR_INTERNET_INVALID_OPTION);
  }
  if (const auto error = NumberSetting("wininet.fail_store")) {
    return Fail(*error);
  }
  const auto& list = *static_cast<const INTERNET_PER_CONN_OPTION_LISTW*>(buffer);
  for (DWORD i = 0; i < list.dwOptionCount; ++i) {
    Connection::Default().Set(list.pOptions[i]);
  }
  return TRUE;
}

extern "C" BOOL WINAPI RecordedQueryOption(HINTERNET handle, DWORD option, void* buffer,
                                           DWORD* length) {
  Record("InternetQueryOptionW", handle, option, buffer, length != nullptr ? *length : 0, false);
  if (option != INTERNET_OPTION_PER_CONNECTION_OPTION || buffer == nullptr) {
    return Fail(ERROR_INTERNET_INVALID_OPTION);
  }
  if (const auto error = NumberSetting("wininet.fail_query")) {
    return Fail(*error);
  }
  const auto& list = *static_cast<const INTERNET_PER_CONN_OPTION_LISTW*>(buffer);
  for (DWORD i = 0; i < list.dwOptionCount; ++i) {
    Connection::Default().Get(list.pOptions[i]);
  }
  return TRUE;
}

}  // namespace korvane::stand_in
