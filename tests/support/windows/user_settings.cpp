#include "support/user_settings.h"

#include <windows.h>

#include <stdexcept>
#include <utility>
#include <vector>

namespace korvane::test {

using platform::RegistryHive;

namespace {

constexpr DWORD kOff = 0;

HKEY RootOf(RegistryHive hive) {
  return hive == RegistryHive::kCurrentUser ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
}

void Require(LSTATUS result, const char* what) {
  if (result != ERROR_SUCCESS) {
    throw std::runtime_error(std::string(what) + " failed with " + std::to_string(result));
  }
}

// An empty key in the place of a predefined one.
class Override {
 public:
  Override(HKEY root, const wchar_t* name)
      : root_(root),
        path_(L"Software\\KorvaneTest-" + std::to_wstring(::GetCurrentProcessId()) + L"-" + name) {
    ::RegDeleteTreeW(HKEY_CURRENT_USER, path_.c_str());
    Require(::RegCreateKeyExW(HKEY_CURRENT_USER, path_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                              nullptr, &key_, nullptr),
            "RegCreateKeyExW");
  }
  ~Override() {
    ::RegOverridePredefKey(root_, nullptr);
    ::RegCloseKey(key_);
    ::RegDeleteTreeW(HKEY_CURRENT_USER, path_.c_str());
  }
  Override(const Override&) = delete;
  Override& operator=(const Override&) = delete;

  void Begin() { Require(::RegOverridePredefKey(root_, key_), "RegOverridePredefKey"); }

 private:
  HKEY root_;
  std::wstring path_;
  HKEY key_ = nullptr;
};

}  // namespace

class ScopedUserSettings::Side {
 public:
  Side() {
    machine_.Begin();
    user_.Begin();
    // What every user has, and WinINet doesn't make.
    Require(::RegSetKeyValueW(HKEY_CURRENT_USER,
                              L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings",
                              L"ProxyEnable", REG_DWORD, &kOff, sizeof(kOff)),
            "RegSetKeyValueW");
  }
  ~Side() {
    for (const auto& [root, path] : denied_) {
      ::RegDeleteKeyW(root, path.c_str());  // the one thing that the key's owner may still do
    }
  }
  Side(const Side&) = delete;
  Side& operator=(const Side&) = delete;

  void Deny(HKEY root, const std::wstring& path) {
    HKEY key = nullptr;
    Require(::RegCreateKeyExW(root, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key,
                              nullptr),
            "RegCreateKeyExW");
    ACL nobody{};
    SECURITY_DESCRIPTOR security{};
    ::InitializeAcl(&nobody, sizeof(nobody), ACL_REVISION);
    ::InitializeSecurityDescriptor(&security, SECURITY_DESCRIPTOR_REVISION);
    ::SetSecurityDescriptorDacl(&security, TRUE, &nobody, FALSE);
    const LSTATUS result = ::RegSetKeySecurity(key, DACL_SECURITY_INFORMATION, &security);
    ::RegCloseKey(key);
    Require(result, "RegSetKeySecurity");
    denied_.emplace_back(root, path);
  }

 private:
  // Both keys lie in the real user's hive, so the user's place must be given back first.
  Override machine_{HKEY_LOCAL_MACHINE, L"machine"};
  Override user_{HKEY_CURRENT_USER, L"user"};
  std::vector<std::pair<HKEY, std::wstring>> denied_;
};

ScopedUserSettings::ScopedUserSettings() : side_(std::make_unique<Side>()) {}
ScopedUserSettings::~ScopedUserSettings() = default;

void ScopedUserSettings::WriteText(RegistryHive hive, const std::wstring& key,
                                   const std::wstring& value, const std::wstring& text) {
  Require(::RegSetKeyValueW(RootOf(hive), key.c_str(), value.c_str(), REG_SZ, text.c_str(),
                            static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))),
          "RegSetKeyValueW");
}

void ScopedUserSettings::Deny(RegistryHive hive, const std::wstring& key) {
  side_->Deny(RootOf(hive), key);
}

}  // namespace korvane::test
