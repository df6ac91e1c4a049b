// second_process.h: this test program once more, as a second process that plays a role.
//
// The two talk in lines. The role (second_process_role.h) inherits the environment as it is at the
// start. One thread.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace korvane::test {

class SecondProcess {
 public:
  // Throws when the process can't be started.
  explicit SecondProcess(const std::string& role);
  // Kills what still runs.
  ~SecondProcess();
  SecondProcess(const SecondProcess&) = delete;
  SecondProcess& operator=(const SecondProcess&) = delete;

  [[nodiscard]] std::uint32_t id() const;

  void Say(std::string_view line);
  // The next line that the role said; nothing when it has ended.
  std::optional<std::string> Hear();

  // A hard death (TerminateProcess, SIGKILL), waited for.
  void Kill();
  // Ends the role's input and waits for its end; its exit code.
  int Finish();

 private:
  struct Native;
  bool ReadMore();

  std::unique_ptr<Native> native_;
  std::string unread_;
};

// In the role: the next line from the starter, nothing at the end; and a line to it.
std::optional<std::string> HearLine();
void SayLine(std::string_view line);

// The role that this process is to play; empty in the process that runs the tests.
std::string RoleOfThisProcess();

}  // namespace korvane::test
