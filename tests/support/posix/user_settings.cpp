#include "support/user_settings.h"

#include "platform/real_os.h"
#include "support/scoped_environment.h"
#include "support/temporary_folder.h"

namespace korvane::test {

using platform::RegistryHive;

class ScopedUserSettings::Side {
 public:
  std::filesystem::path FileOf(RegistryHive hive) const {
    const bool user = hive == RegistryHive::kCurrentUser;
    const auto folder = folder_ / "Korvane";
    std::filesystem::create_directories(folder);
    return folder / (user ? "registry_current_user" : "registry_local_machine");
  }

 private:
  TemporaryFolder folder_;
  ScopedEnvironment variable_{"XDG_CONFIG_HOME", folder_.path().string()};
};

ScopedUserSettings::ScopedUserSettings() : side_(std::make_unique<Side>()) {}
ScopedUserSettings::~ScopedUserSettings() = default;

void ScopedUserSettings::WriteText(RegistryHive hive, const std::wstring& key,
                                   const std::wstring& value, const std::wstring& text) {
  const std::wstring lines = L"[" + key + L"]\n" + value + L"=text:" + text + L"\n";
  const auto file = side_->FileOf(hive);
  WriteBytes(file,
             ReadBytes(file).value_or("") + platform::RealTextEncoding().WideToUtf8Lossy(lines));
}

void ScopedUserSettings::Deny(RegistryHive hive, const std::wstring& /*key*/) {
  const auto file = side_->FileOf(hive);
  std::filesystem::remove(file);
  std::filesystem::create_directory(file);
}

}  // namespace korvane::test
