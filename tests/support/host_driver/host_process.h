// host_process.h: one run of the host, driven through its console.
//
// Lines are sent and awaited; nothing here sleeps, and the time that a wait is given counts only
// when the test is red anyway. Awaiting goes forward: each Await looks behind the line that the one
// before it found, so that a row of them asserts an order. Replies are found by their id wherever
// they are.
//
// Under Wine an exit code keeps its low byte only.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/host_driver/child_streams.h"
#include "support/host_driver/host_user.h"

namespace korvane::test {

using Json = nlohmann::json;

inline constexpr std::chrono::seconds kPatience{120};

struct HostOptions {
  std::vector<std::string> arguments = {};
  // Added to the user's environment. "APPDATA" reaches the Windows program too, which Wine would
  // not pass on; Kill doesn't reach a program that was started so.
  std::map<std::string, std::string> environment = {};
};

// The environment in which frames are drawn when told to, and not before.
inline const std::map<std::string, std::string> kManualFrames = {
    {"KORVANE_CONSOLE_FRAMES", "manual"}};

class HostProcess {
 public:
  // Starts the program. Throws std::runtime_error when it can't be started.
  explicit HostProcess(const HostUser& user, HostOptions options = {});
  // Kills what still runs.
  ~HostProcess();
  HostProcess(const HostProcess&) = delete;
  HostProcess& operator=(const HostProcess&) = delete;

  [[nodiscard]] int pid() const;

  // Sends one line of the console's input.
  void Send(const Json& line);
  void SendText(const std::string& text);
  // The end of the input: the console waits for open replies and closes the window.
  void EndInput();

  // The next line that has all keys of the pattern with their values, maps compared likewise. Fails
  // the test, and gives null, when the process ends or the time runs out before one comes.
  Json Await(const Json& pattern, std::chrono::milliseconds patience = kPatience);

  // The same for the next line that has this key.
  Json AwaitKey(const std::string& key, std::chrono::milliseconds patience = kPatience);

  // Waits for the first output line or for the end; whether there was a line.
  bool SaysAnything(std::chrono::milliseconds patience = kPatience);

  // Sends a call and gives the line of its reply.
  Json Call(const std::string& method, const Json& arguments = nullptr,
            const std::string& channel = "vpn");
  // The line of a reply.
  Json Reply(const Json& id);

  // Ends the input and waits for the end of the process.
  int Finish();
  // The exit code, 128 and the signal after a killing; fails the test and kills when it takes
  // longer.
  int WaitForExit(std::chrono::milliseconds patience = kPatience);
  // A hard death.
  void Kill();

  // What came so far. Lines of the output that are no JSON objects are texts.
  [[nodiscard]] std::vector<Json> lines() const;
  [[nodiscard]] std::vector<std::string> error_lines() const;
  // The output lines that have all keys of the pattern.
  [[nodiscard]] std::vector<Json> Matching(const Json& pattern) const;

  // Both streams, for a message.
  [[nodiscard]] std::string Transcript() const;

 private:
  using Deadline = std::chrono::steady_clock::time_point;
  // The line of that number, which then goes on by one; fails the test when none comes.
  std::optional<Json> TakeLine(std::size_t& number, Deadline deadline, const std::string& told);

  template <typename Wanted>
  Json AwaitLine(Wanted wanted, const std::string& told, std::chrono::milliseconds patience);

  std::unique_ptr<ChildStreams> streams_;
  int pid_ = -1;
  int input_ = -1;
  std::size_t next_line_ = 0;            // where the next Await begins
  std::size_t next_unsorted_line_ = 0;   // replies before it are in the map
  std::map<std::string, Json> replies_;  // by the id's JSON text
  int next_id_ = 1'000'000;
};

// Whether `value` has all that `pattern` has: for objects each key, for all else equality.
bool Matches(const Json& value, const Json& pattern);

}  // namespace korvane::test
