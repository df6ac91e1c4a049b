// run_command.h: starts a program with an environment, and waits for it.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace korvane::test {

using Environment = std::vector<std::pair<std::string, std::string>>;

// Descriptors of the new process; -1 is /dev/null.
struct Descriptors {
  int input = -1;
  int output = -1;
  int errors = -1;
};

// Starts a program by its path, in a process group of its own and in the folder "/". `environment`
// is added to the caller's, whose HTTP proxy is left out. Gives the process id; throws
// std::runtime_error.
int Spawn(const std::vector<std::string>& arguments, const Environment& environment,
          const Descriptors& descriptors);

// Runs a command to its end, its output thrown away; gives its exit status.
int RunCommand(const std::vector<std::string>& arguments, const Environment& environment);

}  // namespace korvane::test
