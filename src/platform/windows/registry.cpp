#include "platform/registry.h"

#include <windows.h>

#include "platform/no_destructor.h"
#include "platform/real_os.h"

namespace korvane::platform {
namespace {

HKEY RootOf(RegistryHive hive) {
  return hive == RegistryHive::kCurrentUser ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
}

Status StatusOf(LSTATUS result) {
  return result == ERROR_SUCCESS ? Status::Ok() : Status::Fail(static_cast<ErrorCode>(result));
}

class WindowsRegistry final : public Registry {
 public:
  Result<std::uint32_t> ReadDword(RegistryHive hive, const std::wstring& key,
                                  const std::wstring& value) override {
    DWORD data = 0;
    DWORD size = sizeof(data);
    const LSTATUS result = ::RegGetValueW(RootOf(hive), key.c_str(), value.c_str(),
                                          RRF_RT_REG_DWORD, nullptr, &data, &size);
    if (result != ERROR_SUCCESS) {
      return Result<std::uint32_t>::Fail(static_cast<ErrorCode>(result));
    }
    return std::uint32_t{data};
  }

  Status WriteDword(RegistryHive hive, const std::wstring& key, const std::wstring& value,
                    std::uint32_t data) override {
    HKEY opened = nullptr;
    if (const LSTATUS result = ::RegCreateKeyExW(RootOf(hive), key.c_str(), 0, nullptr, 0,
                                                 KEY_SET_VALUE, nullptr, &opened, nullptr);
        result != ERROR_SUCCESS) {
      return StatusOf(result);
    }
    const LSTATUS result = ::RegSetValueExW(opened, value.c_str(), 0, REG_DWORD,
                                            reinterpret_cast<const BYTE*>(&data), sizeof(data));
    ::RegCloseKey(opened);
    return StatusOf(result);
  }

  Status DeleteValue(RegistryHive hive, const std::wstring& key,
                     const std::wstring& value) override {
    HKEY opened = nullptr;
    if (const LSTATUS result =
            ::RegOpenKeyExW(RootOf(hive), key.c_str(), 0, KEY_SET_VALUE, &opened);
        result != ERROR_SUCCESS) {
      return StatusOf(result);
    }
    const LSTATUS result = ::RegDeleteValueW(opened, value.c_str());
    ::RegCloseKey(opened);
    return StatusOf(result);
  }
};

}  // namespace

Registry& RealRegistry() {
  static NoDestructor<WindowsRegistry> registry;
  return *registry;
}

}  // namespace korvane::platform
