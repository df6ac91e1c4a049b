#include "platform/scheduled_command.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/no_destructor.h"
#include "platform/posix/child_processes.h"
#include "platform/posix/command_line_words.h"
#include "platform/posix/wide_bytes.h"
#include "platform/real_os.h"

namespace korvane::platform {

namespace {

using std::filesystem::path;

constexpr std::uint32_t kCodeOfAnUnknownEnd = 1;

bool IsProgram(const path& file) {
  struct stat status {};
  return stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         access(file.c_str(), X_OK) == 0;
}

// The executable's own folder, then those of PATH; an empty entry there is the working folder.
std::vector<path> SearchFolders() {
  std::vector<path> folders;
  if (const Result<ExecutablePath> executable = RealProcess().Executable()) {
    folders.push_back(path(BytesFromWide(executable.value().path)).parent_path());
  }
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in the host changes the environment
  const char* variable = std::getenv("PATH");
  std::string_view rest = variable != nullptr ? variable : "";
  while (!rest.empty()) {
    const std::size_t end = rest.find(':');
    folders.emplace_back(end == 0 ? "." : rest.substr(0, end));
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  }
  return folders;
}

std::optional<path> FindProgram(const std::string& name) {
  if (name.find('/') != std::string::npos) {
    return name;
  }
  for (const path& folder : SearchFolders()) {
    if (path candidate = folder / name; IsProgram(candidate)) {
      return candidate;
    }
  }
  return std::nullopt;
}

class PosixScheduledCommand final : public ScheduledCommand {
 public:
  Result<std::uint32_t> Run(const std::wstring& command_line) override {
    ChildProgram program{
        .path = {}, .words = {}, .environment = {}, .descriptors = {}, .silent = true};
    if (!command_line.empty()) {
      for (const std::wstring& word : CommandLineWords(command_line)) {
        program.words.push_back(BytesFromWide(word));
      }
    }
    const std::optional<path> file =
        program.words.empty() ? std::nullopt : FindProgram(program.words.front());
    if (!file) {
      return Result<std::uint32_t>::Fail(kErrorFileNotFound);
    }
    program.path = file->native();
    const Result<pid_t> child = StartChild(program);
    if (!child) {
      return Result<std::uint32_t>::Fail(child.error());
    }
    return AwaitChild(child.value()).value_or(kCodeOfAnUnknownEnd);
  }
};

}  // namespace

ScheduledCommand& RealScheduledCommand() {
  static NoDestructor<PosixScheduledCommand> command;
  return *command;
}

}  // namespace korvane::platform
