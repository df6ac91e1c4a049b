// child_streams.h: what a child process writes, cut into lines as it comes, and how it ended.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace korvane::test {

class ChildStreams {
 public:
  // Takes over the reading ends of both pipes, and the child: nobody else may wait for it.
  ChildStreams(int pid, int output, int errors);
  // The child must have ended.
  ~ChildStreams();
  ChildStreams(const ChildStreams&) = delete;
  ChildStreams& operator=(const ChildStreams&) = delete;

  // Waits for the output line of this number; nothing when the child ended without one, or the time
  // ran out.
  std::optional<std::string> WaitForLine(std::size_t number, std::chrono::milliseconds patience);
  // Waits for the end of the child and of its output; its exit code, or 128 and the signal.
  std::optional<int> WaitForExit(std::chrono::milliseconds patience);

  // Signals the child's process group, unless the child has ended.
  void Signal(int signal);

  std::vector<std::string> lines() const;
  std::vector<std::string> error_lines() const;

 private:
  struct Stream {
    int descriptor;
    std::string rest;  // of a line that isn't whole yet
    std::vector<std::string> lines;
    bool open = true;
  };

  void WaitForChild();
  void ReadStreams();
  // Takes what is there; false at the end of the stream.
  bool Take(Stream& stream);
  void Finish(Stream& stream);

  const int pid_;
  int stop_reading_ = -1;
  int stop_writing_ = -1;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  Stream output_;
  Stream errors_;
  std::optional<int> exit_code_;
  bool drained_ = false;

  std::thread reader_;
  std::thread waiter_;
};

}  // namespace korvane::test
