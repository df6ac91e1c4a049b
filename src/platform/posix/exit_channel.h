// exit_channel.h: how a process's 32-bit exit code reaches the process that launched it.
//
// A Unix exit status has eight bits. So the launcher hands its child one end of a socket pair and
// says so in the environment ("KORVANE_POSIX_EXIT_CHANNEL", the launcher's process id, a colon, the
// descriptor's number). Process::Exit writes the code there; a child that ends in any other way
// writes nothing, and its status counts. The id keeps a grandchild, which inherits the environment,
// from answering in the child's place.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/posix/file_descriptor.h"
#include "platform/result.h"

namespace korvane::platform {

inline constexpr char kExitChannelVariable[] = "KORVANE_POSIX_EXIT_CHANNEL";

struct ExitChannel {
  FileDescriptor launcher;
  FileDescriptor child;  // close-on-exec: to be kept open in the child by the launch itself
  std::string variable;  // the value of the environment variable, for a child of this process
};

Result<ExitChannel> MakeExitChannel();

// The launcher's side: the code, once the child has written it. Leaves it there to be read again.
std::optional<std::uint32_t> ReadExitCode(const FileDescriptor& launcher);

// The child's side: writes the code, if this process was launched with a channel by its parent.
void ReportExitCode(std::uint32_t code);

}  // namespace korvane::platform
