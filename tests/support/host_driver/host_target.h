// host_target.h: which host the scenarios drive.
//
// The same test program drives either one. The environment decides, and CTest sets it:
//
//   KORVANE_HOST      "windows" for the Windows program under Wine, else the native one
//   KORVANE_HOST_BIN  the folder of the programs and their libraries; when unset, the build's own
//   or
//                     that of the Windows build that the build was told of
#pragma once

#include <filesystem>
#include <string>

namespace korvane::test {

// Whether the Windows program is driven.
bool DrivesWindows();

// A program of the folder, by its name without a suffix.
std::filesystem::path HostProgram(const std::string& name);

}  // namespace korvane::test
