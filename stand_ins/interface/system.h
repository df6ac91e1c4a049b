// system.h: what the stand-in asks of the process that it is loaded into.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace korvane::stand_in {

// An environment variable as UTF-8; nothing when unset or empty.
std::optional<std::string> Environment(const char* name);

// Whether this process was started to take over from another one. It inherits that one's
// environment, and adds to its output instead of cutting it.
bool IsTakeoverSuccessor();

// Ends the process at once, without destructors, on any thread.
[[noreturn]] void EndProcess(int code);
// Ends it as a crash does: nothing is flushed, no handler runs.
[[noreturn]] void CrashProcess();

// What the process holds, as far as it can be counted here.
struct Holdings {
  std::optional<std::uint64_t> heap_bytes;  // where one of the compiler's checkers counts it
  std::optional<std::uint32_t> handles;     // on Windows; under Wine a number that grows with them
};
Holdings HoldingsOfProcess();

// Where lines come from: the file of KORVANE_CONSOLE_IN, or standard input. One thread.
class InputSource {
 public:
  enum class Kind {
    kFile,     // all lines are there
    kStream,   // lines come as somebody writes them: a pipe, a terminal
    kNone,     // the process has no standard input
    kMissing,  // the file can't be opened
  };

  InputSource();
  ~InputSource();
  InputSource(const InputSource&) = delete;
  InputSource& operator=(const InputSource&) = delete;

  [[nodiscard]] Kind kind() const { return kind_; }
  // Waits for bytes; 0 at the end and after a failure.
  std::size_t Read(char* buffer, std::size_t size);

 private:
  std::intptr_t handle_;
  Kind kind_;
};

// Where lines go: the file of KORVANE_CONSOLE_OUT, or standard output. Opened by the first line, so
// that a process that says nothing touches no file. Not synchronised.
class OutputSink {
 public:
  OutputSink() = default;
  ~OutputSink() = default;  // open to the end of the process
  OutputSink(const OutputSink&) = delete;
  OutputSink& operator=(const OutputSink&) = delete;

  // Writes all of it, or drops it where nobody can take it.
  void Write(std::string_view bytes);

 private:
  std::optional<std::intptr_t> handle_;
};

}  // namespace korvane::stand_in
