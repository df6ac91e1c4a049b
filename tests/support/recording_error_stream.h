// recording_error_stream.h: an error stream that keeps its lines. Any thread.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "platform/error_stream.h"
#include "platform/mutex.h"

namespace korvane::test {

class RecordingErrorStream : public platform::ErrorStream {
 public:
  // The lines so far, in order, without their line ends.
  std::vector<std::string> lines() {
    MutexLock lock(mutex_);
    return lines_;
  }

  // Whether some line is, or holds, this text.
  bool Has(std::string_view line) {
    MutexLock lock(mutex_);
    return std::find(lines_.begin(), lines_.end(), line) != lines_.end();
  }
  bool HasText(std::string_view part) {
    MutexLock lock(mutex_);
    return std::any_of(lines_.begin(), lines_.end(), [part](const std::string& line) {
      return line.find(part) != std::string::npos;
    });
  }
  void Clear() {
    MutexLock lock(mutex_);
    lines_.clear();
    debugger_texts_.clear();
  }
  std::vector<std::string> debugger_texts() {
    MutexLock lock(mutex_);
    return debugger_texts_;
  }
  int silence_calls() {
    MutexLock lock(mutex_);
    return silence_calls_;
  }

  // What SilenceStandardError answers from now on.
  void SetSilenceResult(platform::Status result) {
    MutexLock lock(mutex_);
    silence_result_ = result;
  }
  void WriteLine(std::string_view utf8) override {
    MutexLock lock(mutex_);
    lines_.emplace_back(utf8);
  }
  platform::Status SilenceStandardError() override {
    MutexLock lock(mutex_);
    ++silence_calls_;
    return silence_result_;
  }
  void WriteToDebugger(std::string_view utf8) override {
    MutexLock lock(mutex_);
    debugger_texts_.emplace_back(utf8);
  }

 private:
  Mutex mutex_;
  std::vector<std::string> lines_ KORVANE_GUARDED_BY(mutex_);
  std::vector<std::string> debugger_texts_ KORVANE_GUARDED_BY(mutex_);
  int silence_calls_ KORVANE_GUARDED_BY(mutex_) = 0;
  platform::Status silence_result_ KORVANE_GUARDED_BY(mutex_) = platform::Status::Ok();
};

}  // namespace korvane::test
