// host_target.h: which host the scenarios drive.
//
// The same test program drives either one. The environment decides, and CTest sets it:
//
//   KORVANE_HOST      "windows" for the Windows program under Wine, else the native one
//   KORVANE_HOST_BIN  the folder of the program and its libraries; when unset, the build's own, or
//                     that of the Windows build that the build was told of
#pragma once

#include <filesystem>

namespace korvane::test {

// Whether the Windows program is driven.
bool DrivesWindows();

// The program itself.
std::filesystem::path HostProgram();

}  // namespace korvane::test
