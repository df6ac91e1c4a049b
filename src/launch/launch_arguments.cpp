#include "launch/launch_arguments.h"

#include <cstddef>

#include "platform/os.h"
#include "system/elevation_takeover.h"

namespace korvane {

std::vector<std::string> GetCommandLineArguments() {
  const auto vector = platform::os().process->ArgumentVector();
  std::vector<std::string> arguments;
  if (!vector || vector->size() < 2) {
    return arguments;
  }
  arguments.reserve(vector->size() - 1);
  for (std::size_t i = 1; i < vector->size(); ++i) {
    arguments.push_back(platform::os().text->WideToUtf8((*vector)[i]).value_or(std::string()));
  }
  return arguments;
}

// "--post-install-restart" is known to the system by name and means nothing here.
LaunchFlags ScanLaunchArguments(const std::vector<std::string>& arguments) {
  LaunchFlags flags;
  for (const std::string& argument : arguments) {
    flags.elevated_restart |= argument == "--elevated-restart";
    flags.admin_bat_shim |= argument == "--admin-bat-shim";
    flags.takeover_child |= argument.starts_with(kTakeoverTokenArgument);
  }
  return flags;
}

}  // namespace korvane
