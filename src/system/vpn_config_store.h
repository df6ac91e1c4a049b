// vpn_config_store.h: the last configuration text, kept across runs.
//
// On disk, in the folder %APPDATA%\Korvane (or "./" when APPDATA is unset or empty):
//
//   vpn_config.dat   the text, byte i XOR the low eight bits of (i - kConfigMaskBase); as long as
//   the
//                    text, without header, checksum or line end; empty means no configuration
//   vpn_config.bak   a copy of vpn_config.dat, taken after each save
//
// A save truncates the live file and writes straight onto it, then copies it to the backup. A crash
// in between leaves a short or empty file, which the next load refuses; the backup is consulted
// only when vpn_config.dat can't be opened at all. Kept on purpose: falling back on a damaged file
// would bring an older configuration to life behind the user's back.
//
// Threads: callers hold lifecycle_mutex; the store has no lock and no state. Nothing throws; each
// failure is a line on the error stream and the stated result. A file that isn't there is no
// failure.
#pragma once

#include <cstdint>
#include <string>

namespace korvane {

inline constexpr std::uint8_t kConfigMaskBase = 0x3C;

// The path of vpn_config.dat, narrow; the environment is read at each call.
std::string GetVpnConfigPath();

// True when the folder of the configuration exists, in whatever form, or has just been created.
bool EnsureConfigDirectory();

// A textual test, never a parse: the text holds "log", "inbounds" and "outbounds" with their
// quotes, and as many opening as closing braces, at least one. Braces inside strings count.
bool ValidateVpnConfig(const std::string& text);

// Scrambles in place, and back: the operation is its own inverse.
void ScrambleVpnConfig(std::string& bytes);

// False when the text is invalid, or folder or file can't be made; nothing was written then. A
// write that fails after the file was opened is not looked at: the result is true all the same.
bool SaveVpnConfigFile(const std::string& text);

// The plain text; empty when nothing usable was found.
std::string LoadVpnConfigFile();

// Copies the configuration over the backup, if there is a configuration.
void CreateConfigBackup();

// Copies the backup over the configuration. False when there is no backup or the copy failed.
bool RestoreConfigFromBackup();

}  // namespace korvane
