// launch_arguments.h: the command line, and what the launch reads from it.
//
// Every argument reaches the Dart side, the ones read here included.
#pragma once

#include <string>
#include <vector>

namespace korvane {

// Matched byte for byte; the case counts.
struct LaunchFlags {
  bool elevated_restart = false;  // "--elevated-restart"
  bool admin_bat_shim = false;    // "--admin-bat-shim"
  bool takeover_child = false;    // begins "--takeover-token="; what follows isn't looked at

  friend bool operator==(const LaunchFlags&, const LaunchFlags&) = default;
};

// The process's arguments in UTF-8, without the program name; empty when the system can't split the
// command line. An argument that can't be converted stays in its place as an empty text.
std::vector<std::string> GetCommandLineArguments();

// Pure.
LaunchFlags ScanLaunchArguments(const std::vector<std::string>& arguments);

}  // namespace korvane
