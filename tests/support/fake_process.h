// fake_process.h: a process with the identity that a test gives it, whose end is an exception.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/process.h"
#include "support/call_journal.h"

namespace korvane::test {

// Thrown by Exit; no std::exception, so nothing of the host catches it.
struct ProcessExit {
  std::uint32_t code;
};

class FakeProcess : public platform::Process {
 public:
  explicit FakeProcess(CallJournal& journal) : journal_(journal) {}

  platform::Result<platform::ExecutablePath> executable =
      platform::ExecutablePath{.path = L"C:\\Korvane\\korvane.exe"};
  std::map<std::string, std::string> environment = {{"APPDATA", "/roaming"}};
  std::optional<std::vector<std::wstring>> arguments = std::vector<std::wstring>{L"korvane.exe"};
  std::int32_t apartment_result = 0;
  bool has_console = true;
  bool debugged = false;
  bool console_opens = true;

  std::uint32_t Id() override { return 4711; }
  platform::Result<platform::ExecutablePath> Executable() override { return executable; }
  std::optional<std::string> EnvironmentVariable(const char* name) override {
    const auto found = environment.find(name);
    return found == environment.end() ? std::nullopt : std::optional(found->second);
  }
  platform::Result<std::wstring> LocalApplicationData() override { return std::wstring(L"/local"); }
  std::optional<std::vector<std::wstring>> ArgumentVector() override {
    journal_.Add("ArgumentVector()");
    return arguments;
  }
  [[noreturn]] void Exit(std::uint32_t code) override {
    journal_.Add("Exit(" + std::to_string(code) + ")");
    throw ProcessExit{code};
  }
  std::int32_t EnterApartment(std::uint32_t flags) override {
    journal_.Add("EnterApartment(" + std::to_string(flags) + ")");
    return apartment_result;
  }
  void LeaveApartment() override { journal_.Add("LeaveApartment()"); }
  void SetAppUserModelId(const wchar_t* id) override {
    journal_.Add("SetAppUserModelId(" + Narrow(id) + ")");
  }
  bool AttachParentConsole() override {
    journal_.Add("AttachParentConsole()");
    return has_console;
  }
  bool DebuggerPresent() override {
    journal_.Add("DebuggerPresent()");
    return debugged;
  }
  bool OpenConsole() override {
    journal_.Add("OpenConsole()");
    return console_opens;
  }

 private:
  CallJournal& journal_;
};

}  // namespace korvane::test
