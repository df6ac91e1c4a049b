// registry.h: the few registry values that the host reads, writes and removes.
//
// Linux: one small text file per hive in the user's configuration folder ($XDG_CONFIG_HOME, else
// ~/.config, then "Korvane"), read and changed under an exclusive lock, replaced by a rename.
// Any thread.
#pragma once

#include <cstdint>
#include <string>

#include "platform/result.h"

namespace korvane::platform {

enum class RegistryHive { kCurrentUser, kLocalMachine };

// The number that a missing key or value gives on both systems (ERROR_FILE_NOT_FOUND).
inline constexpr ErrorCode kRegistryNotFound = 2;

class Registry {
 public:
  virtual ~Registry() = default;

  // RegGetValueW with RRF_RT_REG_DWORD (0x10). Another type of value is an error (1630).
  virtual Result<std::uint32_t> ReadDword(RegistryHive hive, const std::wstring& key,
                                          const std::wstring& value) = 0;

  // RegCreateKeyExW with KEY_SET_VALUE, RegSetValueExW of a REG_DWORD, RegCloseKey.
  virtual Status WriteDword(RegistryHive hive, const std::wstring& key, const std::wstring& value,
                            std::uint32_t data) = 0;

  // RegOpenKeyExW with KEY_SET_VALUE (2), RegDeleteValueW, RegCloseKey. Fails with the first error.
  virtual Status DeleteValue(RegistryHive hive, const std::wstring& key,
                             const std::wstring& value) = 0;
};

}  // namespace korvane::platform
