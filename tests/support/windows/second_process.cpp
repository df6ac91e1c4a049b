#include "support/second_process.h"

#include <windows.h>

#include <array>
#include <stdexcept>
#include <vector>

#include "support/scoped_environment.h"

namespace korvane::test {

namespace {

struct PipeEnds {
  HANDLE reading = nullptr;
  HANDLE writing = nullptr;
};

// The end that the other process gets is the one that is inherited.
PipeEnds Pipe(HANDLE PipeEnds::*inherited) {
  PipeEnds ends;
  if (!CreatePipe(&ends.reading, &ends.writing, nullptr, 0) ||
      !SetHandleInformation(ends.*inherited, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT)) {
    throw std::runtime_error("no pipe");
  }
  return ends;
}

std::wstring OwnPath() {
  std::vector<wchar_t> path(32768);
  return std::wstring(path.data(),
                      GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
}

}  // namespace

struct SecondProcess::Native {
  HANDLE process = nullptr;
  DWORD id = 0;
  HANDLE to = nullptr;
  HANDLE from = nullptr;

  ~Native() {
    CloseInput();
    CloseHandle(from);
  }

  void CloseInput() {
    if (to != nullptr) {
      CloseHandle(to);
      to = nullptr;
    }
  }

  int Wait() {
    WaitForSingleObject(process, INFINITE);
    DWORD code = 0;
    GetExitCodeProcess(process, &code);
    CloseHandle(process);
    process = nullptr;
    return static_cast<int>(code);
  }
};

SecondProcess::SecondProcess(const std::string& role) : native_(std::make_unique<Native>()) {
  const PipeEnds input = Pipe(&PipeEnds::reading);
  const PipeEnds output = Pipe(&PipeEnds::writing);
  native_->to = input.writing;
  native_->from = output.reading;
  STARTUPINFOW start{};
  start.cb = sizeof(start);
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdInput = input.reading;
  start.hStdOutput = output.writing;
  start.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION process{};
  const ScopedEnvironment playing("KORVANE_TEST_ROLE", role);
  const BOOL started = CreateProcessW(OwnPath().c_str(), nullptr, nullptr, nullptr, TRUE, 0,
                                      nullptr, nullptr, &start, &process);
  CloseHandle(input.reading);
  CloseHandle(output.writing);
  if (!started) {
    throw std::runtime_error("no second process");
  }
  CloseHandle(process.hThread);
  native_->process = process.hProcess;
  native_->id = process.dwProcessId;
}

SecondProcess::~SecondProcess() {
  if (native_->process != nullptr) {
    Kill();
  }
}

std::uint32_t SecondProcess::id() const { return native_->id; }

void SecondProcess::Say(std::string_view line) {
  const std::string whole = std::string(line) + "\n";
  DWORD written = 0;
  if (!WriteFile(native_->to, whole.data(), static_cast<DWORD>(whole.size()), &written, nullptr)) {
    throw std::runtime_error("the second process doesn't listen");
  }
}

bool SecondProcess::ReadMore() {
  std::array<char, 4096> block{};
  DWORD got = 0;
  if (!ReadFile(native_->from, block.data(), static_cast<DWORD>(block.size()), &got, nullptr) ||
      got == 0) {
    return false;
  }
  unread_.append(block.data(), got);
  return true;
}

void SecondProcess::Kill() {
  TerminateProcess(native_->process, 9);
  native_->Wait();
}

int SecondProcess::Finish() {
  native_->CloseInput();
  return native_->Wait();
}

}  // namespace korvane::test
