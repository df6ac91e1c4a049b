#include "platform/posix/child_processes.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

// This header's declarations lack C linkage in glibc 2.36.
extern "C" {
#include <sys/pidfd.h>
}

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string_view>

#include "platform/posix/error_stream_for_children.h"
#include "platform/posix/exit_channel.h"

namespace korvane::platform {

namespace {

constexpr std::uint32_t kSignalBase = 128;

// The descriptors of the child.
class FileActions {
 public:
  FileActions() { posix_spawn_file_actions_init(&actions_); }
  ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;

  // A copy of a descriptor onto itself takes its close-on-exec mark away, in the child alone.
  void Keep(int descriptor) { posix_spawn_file_actions_adddup2(&actions_, descriptor, descriptor); }
  // Standard error as this process was started with it.
  void PassErrorStream() {
    const int stream = ErrorStreamForChildren();
    if (stream > STDERR_FILENO) {
      posix_spawn_file_actions_adddup2(&actions_, stream, STDERR_FILENO);
    }
  }
  void Silence() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
      posix_spawn_file_actions_addopen(&actions_, stream, "/dev/null", O_RDWR, 0);
    }
  }
  const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
};

class SpawnAttributes {
 public:
  SpawnAttributes() {
    posix_spawnattr_init(&attributes_);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes_, &none);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK);
  }
  ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;

  const posix_spawnattr_t* get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_{};
};

std::string_view NameOf(std::string_view setting) { return setting.substr(0, setting.find('=')); }

std::vector<std::string> EnvironmentFor(const ChildProgram& program) {
  std::vector<std::string> settings;
  for (char** setting = environ; *setting != nullptr; ++setting) {
    const auto replaced = [setting](const auto& value) { return value.first == NameOf(*setting); };
    if (std::none_of(program.environment.begin(), program.environment.end(), replaced)) {
      settings.emplace_back(*setting);
    }
  }
  for (const auto& [name, value] : program.environment) {
    settings.emplace_back(name).append("=").append(value);
  }
  return settings;
}

// The texts as the system takes them; valid as long as they are.
std::vector<char*> PointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

Result<pid_t> StartChild(const ChildProgram& program) {
  FileActions actions;
  for (const int descriptor : program.descriptors) {
    actions.Keep(descriptor);
  }
  program.silent ? actions.Silence() : actions.PassErrorStream();
  const SpawnAttributes attributes;
  std::vector<std::string> words = program.words;
  std::vector<std::string> environment = EnvironmentFor(program);
  pid_t child = 0;
  const int error = posix_spawn(&child, program.path.c_str(), actions.get(), attributes.get(),
                                PointersTo(words).data(), PointersTo(environment).data());
  return error == 0 ? Result<pid_t>(child) : Result<pid_t>::Fail(static_cast<ErrorCode>(error));
}

std::optional<std::uint32_t> AwaitChild(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) != child) {
    if (errno != EINTR) {
      return std::nullopt;
    }
  }
  return WIFEXITED(status) ? static_cast<std::uint32_t>(WEXITSTATUS(status))
                           : kSignalBase + static_cast<std::uint32_t>(WTERMSIG(status));
}

Result<KernelHandle> LaunchedProcess::Start(KernelObjects& owner, ChildProgram program) {
  Result<ExitChannel> channel = MakeExitChannel();
  if (!channel) {
    return Result<KernelHandle>::Fail(channel.error());
  }
  program.environment.emplace_back(kExitChannelVariable, channel.value().variable);
  program.descriptors.push_back(channel.value().child.get());
  const Result<pid_t> child = StartChild(program);
  if (!child) {
    return Result<KernelHandle>::Fail(child.error());
  }
  FileDescriptor process(pidfd_open(child.value(), 0));
  if (!process) {
    return Result<KernelHandle>::Fail(static_cast<ErrorCode>(errno));
  }
  return MakeHandle(owner, std::make_unique<LaunchedProcess>(child.value(), std::move(process),
                                                             std::move(channel.value().launcher)));
}

LaunchedProcess::~LaunchedProcess() {
  siginfo_t end{};
  waitid(P_PID, static_cast<id_t>(id_), &end, WEXITED | WNOHANG);
}

Result<std::uint32_t> LaunchedProcess::ExitCode() const {
  siginfo_t end{};
  if (waitid(P_PID, static_cast<id_t>(id_), &end, WEXITED | WNOHANG | WNOWAIT) != 0) {
    return Result<std::uint32_t>::Fail(static_cast<ErrorCode>(errno));
  }
  if (end.si_pid == 0) {
    return kStillActive;
  }
  if (end.si_code != CLD_EXITED) {
    return kSignalBase + static_cast<std::uint32_t>(end.si_status);
  }
  return ReadExitCode(exit_channel_).value_or(static_cast<std::uint32_t>(end.si_status));
}

}  // namespace korvane::platform
