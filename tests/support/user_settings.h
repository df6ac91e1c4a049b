// user_settings.h: an empty registry and fresh proxy settings, for this process and a scope.
//
// Linux: the configuration folder is a temporary one (XDG_CONFIG_HOME), which child processes see
// too. Windows: the predefined keys lead to temporary ones in this process, the system's own
// libraries included; child processes see the real ones. So tests that use it can run side by side.
#pragma once

#include <memory>
#include <string>

#include "platform/registry.h"

namespace korvane::test {

class ScopedUserSettings {
 public:
  ScopedUserSettings();
  ~ScopedUserSettings();
  ScopedUserSettings(const ScopedUserSettings&) = delete;
  ScopedUserSettings& operator=(const ScopedUserSettings&) = delete;

  // Stores a value that is no number.
  void WriteText(platform::RegistryHive hive, const std::wstring& key, const std::wstring& value,
                 const std::wstring& text);
  // Makes every later access to the key fail, other than by absence; on Linux, to its whole hive.
  void Deny(platform::RegistryHive hive, const std::wstring& key);

 private:
  class Side;
  std::unique_ptr<Side> side_;
};

}  // namespace korvane::test
