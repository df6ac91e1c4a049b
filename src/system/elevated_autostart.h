// elevated_autostart.h: the logon task that starts the program with the highest rights, and whether
// the process has such rights now.
//
// The task lives in the system's task store; schtasks.exe is the only door to it, and its exit code
// all that is read. Each call blocks for the length of its runs, without a bound. Nothing throws;
// failures go to the error stream.
#pragma once

#include <cstdint>
#include <string>

#include "platform/registry.h"

namespace korvane {

// Whether the token in effect is a member of the Administrators group.
bool IsProcessElevated();

// Whether the task exists. Neither its path nor its rights are looked at.
bool IsElevatedAutostartEnabled();

// Makes or replaces the task for this executable, started without arguments, and then removes the
// older value under the two Run keys. Needs administrator rights; testing for them is the caller's.
bool EnableElevatedAutostart();

// Removes the task; true when there was none. The older value isn't put back.
bool DisableElevatedAutostart();

// Runs schtasks.exe with the tail and waits. False when it could not be started; exit_code (may be
// null) is untouched then.
bool RunSchtasks(const std::wstring& tail, std::uint32_t* exit_code);

// Removes the value "Korvane" of the hive's Run key, quietly.
void RemoveLegacyRunValue(platform::RegistryHive hive);

}  // namespace korvane
