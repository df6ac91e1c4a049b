#include "system/vpn_config_store.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <string_view>

#include "platform/os.h"

namespace korvane {

namespace {

using platform::os;

// A failure of the file system layer inside this file; its text begins with the operation's name.
class StoreError : public std::runtime_error {
 public:
  StoreError(std::string_view operation, platform::ErrorCode error)
      : std::runtime_error(std::string(operation) + ": " + os().text->ErrorMessage(error)) {}
};

struct StorePaths {
  std::filesystem::path config;
  std::filesystem::path folder;
  std::filesystem::path backup;
};

StorePaths ComputePaths() {
  StorePaths paths;
  paths.config = os().text->PathFromNarrow(GetVpnConfigPath());
  paths.folder = paths.config.parent_path();
  paths.backup = paths.folder / "vpn_config.bak";
  return paths;
}

bool Exists(const std::filesystem::path& path) {
  const auto kind = os().files->Inspect(path);
  if (!kind) {
    throw StoreError("exists", kind.error());
  }
  return kind.value() != platform::EntryKind::kAbsent;
}

void CopyOver(const std::filesystem::path& from, const std::filesystem::path& to) {
  if (const auto copied = os().files->Copy(from, to); !copied) {
    throw StoreError("copy_file", copied.error());
  }
}

void Report(std::string_view what, const std::exception& error) {
  platform::WriteErrorLine(std::string(what) + error.what());
}

bool Contains(const std::string& text, std::string_view literal) {
  return text.find(literal) != std::string::npos;
}

std::string ReadWhole(platform::File& file) {
  std::string bytes;
  while (true) {
    auto chunk = os().files->Read(file, std::uint64_t{1} << 20);
    if (!chunk || chunk.value().empty()) {
      return bytes;
    }
    bytes += chunk.value();
  }
}

// The file's bytes; empty when neither it nor a restored backup can be opened.
std::string ReadConfigBytes() {
  const StorePaths paths = ComputePaths();
  auto file = os().files->Open(paths.config, platform::OpenMode::kRead);
  if (!file) {
    if (!RestoreConfigFromBackup()) {
      return {};
    }
    file = os().files->Open(paths.config, platform::OpenMode::kRead);
    if (!file) {
      return {};
    }
  }
  return ReadWhole(file.value());
}

}  // namespace

std::string GetVpnConfigPath() {
  const auto app_data = os().process->EnvironmentVariable("APPDATA");
  // An empty value would put the files at the root of the drive.
  if (!app_data || app_data->empty()) {
    return "./vpn_config.dat";
  }
  const char separator = os().text->PathSeparator();
  return *app_data + separator + "Korvane" + separator + "vpn_config.dat";
}

bool EnsureConfigDirectory() {
  try {
    const StorePaths paths = ComputePaths();
    if (Exists(paths.folder)) {
      return true;
    }
    const auto created = os().files->CreateDirectories(paths.folder);
    if (!created) {
      throw StoreError("create_directories", created.error());
    }
    return created.value();
  } catch (const std::exception& error) {
    Report("Error creating config directory: ", error);
    return false;
  }
}

bool ValidateVpnConfig(const std::string& text) {
  try {
    if (!Contains(text, "\"log\"") || !Contains(text, "\"inbounds\"") ||
        !Contains(text, "\"outbounds\"")) {
      return false;
    }
    const auto opening = std::count(text.begin(), text.end(), '{');
    return opening != 0 && opening == std::count(text.begin(), text.end(), '}');
  } catch (const std::exception& error) {
    Report("Config validation error: ", error);
    return false;
  }
}

void ScrambleVpnConfig(std::string& bytes) {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const auto mask = static_cast<std::uint8_t>(i - kConfigMaskBase);
    bytes[i] = static_cast<char>(static_cast<std::uint8_t>(bytes[i]) ^ mask);
  }
}

bool SaveVpnConfigFile(const std::string& text) {
  try {
    if (!ValidateVpnConfig(text) || !EnsureConfigDirectory()) {
      return false;
    }
    const StorePaths paths = ComputePaths();
    std::string bytes = text;
    ScrambleVpnConfig(bytes);
    auto file = os().files->Open(paths.config, platform::OpenMode::kWriteShared);
    if (!file) {
      return false;
    }
    // Kept on purpose: a failed write or close is not looked at. The text runs in any case, and a
    // file that came out short is refused by the next load.
    static_cast<void>(os().files->Write(file.value(), bytes));
    static_cast<void>(os().files->Close(file.value()));
    CreateConfigBackup();
    return true;
  } catch (const std::exception& error) {
    Report("Error saving VPN config: ", error);
    return false;
  }
}

std::string LoadVpnConfigFile() {
  try {
    std::string text = ReadConfigBytes();
    ScrambleVpnConfig(text);
    // An empty file is no configuration and fails the test like any other text that isn't one.
    return ValidateVpnConfig(text) ? text : std::string();
  } catch (const std::exception& error) {
    Report("Error loading VPN config: ", error);
    return {};
  }
}

void CreateConfigBackup() {
  try {
    const StorePaths paths = ComputePaths();
    if (Exists(paths.config)) {
      CopyOver(paths.config, paths.backup);
    }
  } catch (const std::exception& error) {
    Report("Error creating backup: ", error);
  }
}

bool RestoreConfigFromBackup() {
  try {
    const StorePaths paths = ComputePaths();
    if (!Exists(paths.backup)) {
      return false;
    }
    CopyOver(paths.backup, paths.config);
    return true;
  } catch (const std::exception& error) {
    Report("Error restoring from backup: ", error);
    return false;
  }
}

}  // namespace korvane
