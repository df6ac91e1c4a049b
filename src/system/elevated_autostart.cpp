#include "system/elevated_autostart.h"

#include "platform/os.h"

namespace korvane {

namespace {

using platform::os;

constexpr wchar_t kTaskName[] = L"\"Korvane Elevated\"";
constexpr wchar_t kLegacyRunKey[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Run";
constexpr wchar_t kLegacyRunValue[] = L"Korvane";

// Runs the tail and reports what went wrong; the exit code starts as a failure.
bool RunReported(const std::wstring& tail, const char* start_failed, const char* run_failed) {
  std::uint32_t exit_code = 1;
  if (!RunSchtasks(tail, &exit_code)) {
    platform::WriteErrorLine(start_failed);
    return false;
  }
  if (exit_code != 0) {
    platform::WriteErrorLine(run_failed + std::to_string(exit_code));
    return false;
  }
  return true;
}

}  // namespace

bool IsProcessElevated() { return os().elevation->IsAdministrator(); }

bool RunSchtasks(const std::wstring& tail, std::uint32_t* exit_code) {
  const auto ran = os().scheduled_command->Run(L"schtasks.exe " + tail);
  if (!ran) {
    return false;
  }
  if (exit_code != nullptr) {  // coverage: every caller asks for it
    *exit_code = ran.value();
  }
  return true;
}

bool IsElevatedAutostartEnabled() {
  std::uint32_t exit_code = 1;
  return RunSchtasks(std::wstring(L"/Query /TN ") + kTaskName, &exit_code) && exit_code == 0;
}

bool EnableElevatedAutostart() {
  const auto executable = os().process->Executable();
  if (!executable) {
    platform::WriteErrorLine("[ProxyManager] Failed to get executable path for autostart. Error: " +
                             std::to_string(executable.error()));
    return false;
  }
  // The inner quotes survive the outer ones of /TR, so that a path with blanks stays one word.
  const std::wstring command = L"\\\"" + executable.value().path + L"\\\"";
  const std::wstring tail = std::wstring(L"/Create /TN ") + kTaskName + L" /TR \"" + command +
                            L"\" /SC ONLOGON /RL HIGHEST /F";
  if (!RunReported(tail, "[ProxyManager] Failed to run schtasks for autostart creation",
                   "[ProxyManager] schtasks returned error code ")) {
    return false;
  }
  RemoveLegacyRunValue(platform::RegistryHive::kCurrentUser);
  RemoveLegacyRunValue(platform::RegistryHive::kLocalMachine);
  return true;
}

bool DisableElevatedAutostart() {
  if (!IsElevatedAutostartEnabled()) {
    return true;
  }
  return RunReported(std::wstring(L"/Delete /TN ") + kTaskName + L" /F",
                     "[ProxyManager] Failed to run schtasks for autostart deletion",
                     "[ProxyManager] schtasks deletion error code ");
}

void RemoveLegacyRunValue(platform::RegistryHive hive) {
  static_cast<void>(os().registry->DeleteValue(hive, kLegacyRunKey, kLegacyRunValue));
}

}  // namespace korvane
