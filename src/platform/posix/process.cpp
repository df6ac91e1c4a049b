#include "platform/process.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <system_error>

#include "platform/no_destructor.h"
#include "platform/posix/exit_channel.h"
#include "platform/posix/wide_bytes.h"
#include "platform/real_os.h"

namespace korvane::platform {

namespace {

using std::filesystem::path;

constexpr std::int32_t kSuccessHresult = 0;  // S_OK

std::optional<std::string> Environment(const char* name) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in the host changes the environment
  const char* value = std::getenv(name);
  return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

std::optional<std::string> ReadWhole(const char* file) {
  std::ifstream stream(file, std::ios::binary);
  if (!stream) {
    return std::nullopt;
  }
  return std::string(std::istreambuf_iterator<char>(stream), {});
}

class PosixProcess final : public Process {
 public:
  std::uint32_t Id() override { return static_cast<std::uint32_t>(getpid()); }

  Result<ExecutablePath> Executable() override {
    std::error_code error;
    const path executable = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) {
      return Result<ExecutablePath>::Fail(static_cast<ErrorCode>(error.value()));
    }
    return ExecutablePath{.path = WideFromBytes(executable.native())};
  }

  std::optional<std::string> EnvironmentVariable(const char* name) override {
    return Environment(name);
  }

  Result<std::wstring> LocalApplicationData() override {
    if (const path data = Environment("XDG_DATA_HOME").value_or(""); data.is_absolute()) {
      return WideFromBytes(data.native());
    }
    const path home = Environment("HOME").value_or("");
    if (home.empty()) {
      return Result<std::wstring>::Fail(ENOENT);
    }
    return WideFromBytes((home / ".local" / "share").native());
  }

  std::optional<std::vector<std::wstring>> ArgumentVector() override {
    const std::optional<std::string> line = ReadWhole("/proc/self/cmdline");
    if (!line) {
      return std::nullopt;
    }
    std::vector<std::wstring> words;
    for (std::string_view rest = *line; !rest.empty();) {
      const std::string_view word = rest.substr(0, rest.find('\0'));
      words.push_back(WideFromBytes(word));
      rest.remove_prefix(std::min(word.size() + 1, rest.size()));
    }
    return words;
  }

  [[noreturn]] void Exit(std::uint32_t code) override {
    ReportExitCode(code);
    _exit(static_cast<int>(code & 0xFF));
  }

  std::int32_t EnterApartment(std::uint32_t /*flags*/) override { return kSuccessHresult; }
  void LeaveApartment() override {}
  void SetAppUserModelId(const wchar_t* /*id*/) override {}

  bool AttachParentConsole() override { return true; }

  bool DebuggerPresent() override {
    constexpr std::string_view kTracer = "\nTracerPid:\t";
    const std::string status = ReadWhole("/proc/self/status").value_or("");
    const std::size_t tracer = status.find(kTracer);
    return tracer != std::string::npos && status.compare(tracer + kTracer.size(), 2, "0\n") != 0;
  }

  bool OpenConsole() override { return false; }
};

}  // namespace

Process& RealProcess() {
  static NoDestructor<PosixProcess> process;
  return *process;
}

}  // namespace korvane::platform
