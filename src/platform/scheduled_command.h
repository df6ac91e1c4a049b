// scheduled_command.h: runs a console command hidden and waits for its end.
#pragma once

#include <cstdint>
#include <string>

#include "platform/result.h"

namespace korvane::platform {

class ScheduledCommand {
 public:
  virtual ~ScheduledCommand() = default;

  // The command's exit code; a failure when it could not be started. CreateProcessW with a null
  // application name (the system's search path finds the program), a writable copy of the command
  // line, no inherited handles, CREATE_NO_WINDOW (0x08000000), STARTF_USESHOWWINDOW with SW_HIDE;
  // an endless wait; GetExitCodeProcess, whose failure counts as exit code 1.
  // Linux: the line is split by the same quoting rules, and the program is looked for beside the
  // executable and then on PATH.
  virtual Result<std::uint32_t> Run(const std::wstring& command_line) = 0;
};

}  // namespace korvane::platform
