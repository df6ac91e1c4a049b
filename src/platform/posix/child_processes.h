// child_processes.h: starting another program, and what became of it.
//
// A child gets a copy of the environment with the given values over it, no blocked signals, and of
// the descriptors the three standard ones (standard error as this process was started with it) and
// those named: everything else that this layer opens is close-on-exec. Any thread.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/kernel_objects.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/kernel_object.h"
#include "platform/result.h"

namespace korvane::platform {

// What GetExitCodeProcess gives for a process that has not ended.
inline constexpr std::uint32_t kStillActive = 259;

struct ChildProgram {
  std::string path;                // used as it is: a name without a slash is in the working folder
  std::vector<std::string> words;  // the argument vector, program name first
  std::vector<std::pair<std::string, std::string>> environment;  // names and values to set
  std::vector<int> descriptors;                                  // to be inherited by their numbers
  bool silent = false;  // standard streams on the null device
};

Result<pid_t> StartChild(const ChildProgram& program);

// Waits for the child's end: its exit code, or 128 and the number of the signal that ended it.
// Nothing when it can't be waited for.
std::optional<std::uint32_t> AwaitChild(pid_t child);

// A child that is waited for through a KernelHandle. One whose handle is closed before its end goes
// on, and stays a zombie from its end until this process ends.
class LaunchedProcess final : public KernelObject {
 public:
  // Starts the program with an exit channel.
  static Result<KernelHandle> Start(KernelObjects& owner, ChildProgram program);

  LaunchedProcess(pid_t id, FileDescriptor process, FileDescriptor exit_channel)
      : id_(id), process_(std::move(process)), exit_channel_(std::move(exit_channel)) {}
  ~LaunchedProcess() override;

  // kStillActive before the end.
  Result<std::uint32_t> ExitCode() const;

  int WaitDescriptor() const override { return process_.get(); }
  bool TakeSignal() override { return true; }

 private:
  pid_t id_;
  FileDescriptor process_;  // readable once the child has ended
  FileDescriptor exit_channel_;
};

}  // namespace korvane::platform
