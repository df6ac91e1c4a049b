// The consent prompt's part is played by the environment too: with KORVANE_POSIX_CONSENT at
// "cancel" the user declines, otherwise consent is given at once.
#include "platform/elevation.h"

#include <unistd.h>

#include <cstdlib>
#include <string_view>

#include "platform/no_destructor.h"
#include "platform/posix/child_processes.h"
#include "platform/posix/command_line_words.h"
#include "platform/posix/wide_bytes.h"
#include "platform/real_os.h"

namespace korvane::platform {

namespace {

constexpr char kElevatedVariable[] = "KORVANE_POSIX_ELEVATED";
constexpr char kElevatedValue[] = "1";
constexpr char kConsentVariable[] = "KORVANE_POSIX_CONSENT";
constexpr char kConsentDeclined[] = "cancel";

bool VariableIs(const char* name, std::string_view value) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in the host changes the environment
  const char* found = std::getenv(name);
  return found != nullptr && found == value;
}

class PosixElevation final : public Elevation {
 public:
  bool IsAdministrator() override { return VariableIs(kElevatedVariable, kElevatedValue); }

  std::wstring UserSid() override { return L"S-1-5-21-0-0-0-" + std::to_wstring(geteuid()); }

  Result<KernelHandle> LaunchElevated(const std::wstring& executable,
                                      const std::wstring& parameters) override {
    if (VariableIs(kConsentVariable, kConsentDeclined)) {
      return Result<KernelHandle>::Fail(kErrorCancelled);
    }
    ChildProgram program{.path = BytesFromWide(executable),
                         .words = {BytesFromWide(executable)},
                         .environment = {{kElevatedVariable, kElevatedValue}},
                         .descriptors = {}};
    for (const std::wstring& word : ParameterWords(parameters)) {
      program.words.push_back(BytesFromWide(word));
    }
    return LaunchedProcess::Start(RealKernelObjects(), std::move(program));
  }

  Result<std::uint32_t> ExitCode(const KernelHandle& process) override {
    const auto* launched = ObjectOf<LaunchedProcess>(process);
    return launched != nullptr ? launched->ExitCode()
                               : Result<std::uint32_t>::Fail(kErrorInvalidHandle);
  }
};

}  // namespace

Elevation& RealElevation() {
  static NoDestructor<PosixElevation> elevation;
  return *elevation;
}

}  // namespace korvane::platform
