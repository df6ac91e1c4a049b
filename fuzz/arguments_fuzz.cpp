// Arbitrary bytes as a command line: its words are found, and a takeover's child opens no event but
// one of the form that its parent makes, or refuses.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <string>
#include <vector>

#include "launch/launch_arguments.h"
#include "platform/posix/command_line_words.h"
#include "require.h"
#include "support/fake_machine.h"
#include "system/elevation_takeover.h"

namespace {

using korvane::fuzz::Require;

constexpr char kOpen[] = "OpenNamedEvent(";
constexpr std::string_view kBegin = "OpenNamedEvent(Local\\Korvane.Takeover.";
constexpr std::string_view kEnd = ".Request)";

bool IsTokensEvent(std::string_view call) {
  if (!call.starts_with(kBegin) || !call.ends_with(kEnd)) {
    return false;
  }
  call.remove_prefix(kBegin.size());
  call.remove_suffix(kEnd.size());
  return !call.empty() && call.size() <= 64 &&
         std::ranges::all_of(call, [](unsigned char c) { return std::isxdigit(c) != 0; });
}

std::wstring Widened(const std::uint8_t* data, std::size_t size) { return {data, data + size}; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  korvane::test::FakeMachine machine;
  if (size != 0) {
    machine.process.arguments = korvane::platform::CommandLineWords(Widened(data, size));
  }
  const std::vector<std::string> arguments = korvane::GetCommandLineArguments();
  const korvane::LaunchFlags flags = korvane::ScanLaunchArguments(arguments);
  bool refused = false;
  try {
    korvane::RunTakeoverChildCheck(arguments);
  } catch (const korvane::test::ProcessExit& exit) {
    refused = true;
    Require(exit.code == korvane::kTakeoverRefusalExitCode);
  }
  const auto calls = machine.journal.Take();
  const auto opened =
      std::ranges::find_if(calls, [](const std::string& call) { return call.starts_with(kOpen); });
  Require(!refused || (flags.takeover_child && opened == calls.end()));
  Require(opened == calls.end() || (flags.takeover_child && IsTokensEvent(*opened)));
  return 0;
}
