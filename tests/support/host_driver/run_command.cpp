#include "support/host_driver/run_command.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string_view>

namespace korvane::test {
namespace {

std::vector<std::string> MergedEnvironment(const Environment& added) {
  std::map<std::string, std::string> merged;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text(*entry);
    const auto equals = text.find('=');
    if (equals != std::string_view::npos) {
      merged.emplace(text.substr(0, equals), text.substr(equals + 1));
    }
  }
  merged.erase("http_proxy");
  merged.erase("HTTP_PROXY");
  for (const auto& [name, value] : added) {
    merged[name] = value;
  }
  std::vector<std::string> entries;
  for (const auto& [name, value] : merged) {
    entries.push_back(name + "=" + value);
  }
  return entries;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (auto& text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

class SpawnRecord {
 public:
  SpawnRecord() {
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    posix_spawn_file_actions_addchdir_np(&actions, "/");
  }
  ~SpawnRecord() {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
  }
  SpawnRecord(const SpawnRecord&) = delete;
  SpawnRecord& operator=(const SpawnRecord&) = delete;

  void Redirect(int target, int source, int open_flags) {
    if (source < 0) {
      posix_spawn_file_actions_addopen(&actions, target, "/dev/null", open_flags, 0);
    } else {
      posix_spawn_file_actions_adddup2(&actions, source, target);
    }
  }

  posix_spawn_file_actions_t actions{};
  posix_spawnattr_t attributes{};
};

}  // namespace

int Spawn(const std::vector<std::string>& arguments, const Environment& environment,
          const Descriptors& descriptors) {
  SpawnRecord record;
  record.Redirect(STDIN_FILENO, descriptors.input, O_RDONLY);
  record.Redirect(STDOUT_FILENO, descriptors.output, O_WRONLY);
  record.Redirect(STDERR_FILENO, descriptors.errors, O_WRONLY);
  auto argument_texts = arguments;
  auto environment_texts = MergedEnvironment(environment);
  pid_t pid = -1;
  const int code =
      posix_spawnp(&pid, arguments.front().c_str(), &record.actions, &record.attributes,
                   Pointers(argument_texts).data(), Pointers(environment_texts).data());
  if (code != 0) {
    throw std::runtime_error(arguments.front() + ": " +
                             std::string(strerror(code)));  // NOLINT(concurrency-mt-unsafe)
  }
  return pid;
}

int RunCommand(const std::vector<std::string>& arguments, const Environment& environment) {
  const int pid = Spawn(arguments, environment, {});
  int status = 0;
  while (waitpid(pid, &status, 0) == -1 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace korvane::test
