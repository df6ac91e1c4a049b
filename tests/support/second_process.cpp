#include "support/second_process.h"

#include <cstdio>
#include <iostream>

namespace korvane::test {

namespace {

// The runner prints to the same stream.
constexpr char kTalkMark = '@';

}  // namespace

std::optional<std::string> SecondProcess::Hear() {
  for (;;) {
    const std::size_t end = unread_.find('\n');
    if (end == std::string::npos) {
      if (!ReadMore()) {
        return std::nullopt;
      }
      continue;
    }
    std::string line = unread_.substr(0, end);
    unread_.erase(0, end + 1);
    if (!line.empty() && line.back() == '\r') {
      line.pop_back();
    }
    if (!line.empty() && line.front() == kTalkMark) {
      return line.substr(1);
    }
  }
}

std::optional<std::string> HearLine() {
  std::string line;
  if (!std::getline(std::cin, line)) {
    return std::nullopt;
  }
  if (!line.empty() && line.back() == '\r') {
    line.pop_back();
  }
  return line;
}

void SayLine(std::string_view line) {
  const std::string whole = kTalkMark + std::string(line) + "\n";
  std::fwrite(whole.data(), 1, whole.size(), stdout);
  std::fflush(stdout);
}

std::string RoleOfThisProcess() {
  const char* role = std::getenv("KORVANE_TEST_ROLE");  // NOLINT(concurrency-mt-unsafe): at start
  return role != nullptr ? role : "";
}

}  // namespace korvane::test
