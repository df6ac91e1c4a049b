#include <windows.h>

#include "launch/launch_sequence.h"

int WINAPI wWinMain(HINSTANCE /*instance*/, HINSTANCE /*previous*/, PWSTR /*command_line*/,
                    int /*show_command*/) {
  return korvane::RunLaunchSequence();
}
