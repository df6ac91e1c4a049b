#include "support/recording_error_stream.h"

#include <algorithm>

namespace korvane::test {

std::vector<std::string> RecordingErrorStream::lines() {
  MutexLock lock(mutex_);
  return lines_;
}

bool RecordingErrorStream::Has(std::string_view line) {
  MutexLock lock(mutex_);
  return std::find(lines_.begin(), lines_.end(), line) != lines_.end();
}

bool RecordingErrorStream::HasText(std::string_view part) {
  MutexLock lock(mutex_);
  return std::any_of(lines_.begin(), lines_.end(), [part](const std::string& line) {
    return line.find(part) != std::string::npos;
  });
}

void RecordingErrorStream::Clear() {
  MutexLock lock(mutex_);
  lines_.clear();
  debugger_texts_.clear();
}

std::vector<std::string> RecordingErrorStream::debugger_texts() {
  MutexLock lock(mutex_);
  return debugger_texts_;
}

int RecordingErrorStream::silence_calls() {
  MutexLock lock(mutex_);
  return silence_calls_;
}

void RecordingErrorStream::SetSilenceResult(platform::Status result) {
  MutexLock lock(mutex_);
  silence_result_ = result;
}

void RecordingErrorStream::WriteLine(std::string_view utf8) {
  MutexLock lock(mutex_);
  lines_.emplace_back(utf8);
}

platform::Status RecordingErrorStream::SilenceStandardError() {
  MutexLock lock(mutex_);
  ++silence_calls_;
  return silence_result_;
}

void RecordingErrorStream::WriteToDebugger(std::string_view utf8) {
  MutexLock lock(mutex_);
  debugger_texts_.emplace_back(utf8);
}

}  // namespace korvane::test
