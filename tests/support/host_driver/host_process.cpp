#include "support/host_driver/host_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "support/host_driver/host_target.h"
#include "support/host_driver/run_command.h"

namespace korvane::test {
namespace {

struct Pipe {
  Pipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
      throw std::runtime_error("no pipe");
    }
    reading = ends[0];
    writing = ends[1];
  }
  int reading;
  int writing;
};

Json Parsed(const std::string& text) {
  auto json = Json::parse(text, nullptr, false);
  return json.is_discarded() ? Json(text) : json;
}

Environment EnvironmentOf(const HostUser& user, const HostOptions& options) {
  auto environment = user.environment();
  environment.insert(environment.end(), options.environment.begin(), options.environment.end());
  return environment;
}

// Wine overwrites APPDATA, so a Windows program gets another one from within.
std::vector<std::string> CommandOf(const HostOptions& options) {
  std::vector<std::string> command;
  const auto program = HostProgram().string();
  const auto app_data = options.environment.find("APPDATA");
  if (!DrivesWindows()) {
    command = {program};
  } else if (app_data == options.environment.end()) {
    command = {KORVANE_WINE_RUN, program};
  } else {
    command = {KORVANE_WINE_RUN, "cmd", "/c",
               "set APPDATA=" + app_data->second + "&& Z:" + program};
  }
  command.insert(command.end(), options.arguments.begin(), options.arguments.end());
  return command;
}

}  // namespace

bool Matches(const Json& value, const Json& pattern) {
  if (!pattern.is_object()) {
    return value == pattern;
  }
  for (const auto& [key, wanted] : pattern.items()) {
    if (!value.contains(key) || !Matches(value[key], wanted)) {
      return false;
    }
  }
  return value.is_object();
}

HostProcess::HostProcess(const HostUser& user, HostOptions options) {
  // A host that has ended must show as a red test and not end the test program.
  signal(SIGPIPE, SIG_IGN);  // NOLINT(bugprone-unused-return-value)
  const Pipe input;
  const Pipe output;
  const Pipe errors;
  pid_ = Spawn(CommandOf(options), EnvironmentOf(user, options),
               {input.reading, output.writing, errors.writing});
  for (const int theirs : {input.reading, output.writing, errors.writing}) {
    close(theirs);
  }
  input_ = input.writing;
  streams_ = std::make_unique<ChildStreams>(pid_, output.reading, errors.reading);
}

HostProcess::~HostProcess() {
  EndInput();
  Kill();
}

int HostProcess::pid() const { return pid_; }

void HostProcess::Send(const Json& line) { SendText(line.dump()); }

void HostProcess::SendText(const std::string& text) {
  const std::string line = text + "\n";
  std::string_view left = line;
  while (!left.empty()) {
    const auto count = write(input_, left.data(), left.size());
    if (count < 0 && errno != EINTR) {
      ADD_FAILURE() << "the host takes no more input\n" << Transcript();
      return;
    }
    if (count > 0) {
      left.remove_prefix(static_cast<std::size_t>(count));
    }
  }
}

void HostProcess::EndInput() {
  if (input_ >= 0) {
    close(std::exchange(input_, -1));
  }
}

std::optional<Json> HostProcess::TakeLine(std::size_t& number, Deadline deadline,
                                          const std::string& told) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      deadline - std::chrono::steady_clock::now());
  const auto text = streams_->WaitForLine(number, left);
  if (!text) {
    ADD_FAILURE() << "no " << told << "\n" << Transcript();
    return std::nullopt;
  }
  ++number;
  return Parsed(*text);
}

template <typename Wanted>
Json HostProcess::AwaitLine(Wanted wanted, const std::string& told,
                            std::chrono::milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  for (;;) {
    auto line = TakeLine(next_line_, deadline, "line like " + told);
    if (!line || wanted(*line)) {
      return line.value_or(nullptr);
    }
  }
}

Json HostProcess::Await(const Json& pattern, std::chrono::milliseconds patience) {
  return AwaitLine([&](const Json& line) { return Matches(line, pattern); }, pattern.dump(),
                   patience);
}

Json HostProcess::AwaitKey(const std::string& key, std::chrono::milliseconds patience) {
  return AwaitLine([&](const Json& line) { return line.contains(key); }, "\"" + key + "\"",
                   patience);
}

bool HostProcess::SaysAnything(std::chrono::milliseconds patience) {
  return streams_->WaitForLine(0, patience).has_value();
}

Json HostProcess::Call(const std::string& method, const Json& arguments,
                       const std::string& channel) {
  const int id = ++next_id_;
  Send({{"call", method}, {"args", arguments}, {"channel", channel}, {"id", id}});
  return Reply(id);
}

Json HostProcess::Reply(const Json& id) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  const auto wanted = id.dump();
  while (!replies_.contains(wanted)) {
    const auto line = TakeLine(next_unsorted_line_, deadline, "reply " + wanted);
    if (!line) {
      return nullptr;
    }
    if (line->contains("reply")) {
      replies_.insert_or_assign((*line)["reply"].dump(), *line);
    }
  }
  return replies_[wanted];
}

int HostProcess::Finish() {
  EndInput();
  return WaitForExit();
}

int HostProcess::WaitForExit(std::chrono::milliseconds patience) {
  const auto code = streams_->WaitForExit(patience);
  if (code) {
    return *code;
  }
  ADD_FAILURE() << "the host doesn't end\n" << Transcript();
  Kill();
  return -1;
}

void HostProcess::Kill() {
  streams_->Signal(SIGKILL);
  (void)streams_->WaitForExit(kPatience);
}

std::vector<Json> HostProcess::lines() const {
  std::vector<Json> parsed;
  for (const auto& text : streams_->lines()) {
    parsed.push_back(Parsed(text));
  }
  return parsed;
}

std::vector<std::string> HostProcess::error_lines() const { return streams_->error_lines(); }

std::vector<Json> HostProcess::Matching(const Json& pattern) const {
  auto found = lines();
  std::erase_if(found, [&](const Json& line) { return !Matches(line, pattern); });
  return found;
}

std::string HostProcess::Transcript() const {
  std::string transcript;
  const auto add = [&](const char* title, const std::vector<std::string>& texts) {
    transcript += std::string(title) + ":\n";
    for (const auto& text : texts) {
      transcript += "  " + text.substr(0, 2000) + "\n";
    }
  };
  add("output", streams_->lines());
  add("error stream", streams_->error_lines());
  return transcript;
}

}  // namespace korvane::test
