// recording_error_stream.h: an error stream that keeps its lines. Any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/error_stream.h"
#include "platform/mutex.h"

namespace korvane::test {

class RecordingErrorStream : public platform::ErrorStream {
 public:
  // The lines so far, in order, without their line ends.
  std::vector<std::string> lines();
  // Whether some line is, or holds, this text.
  bool Has(std::string_view line);
  bool HasText(std::string_view part);
  void Clear();

  std::vector<std::string> debugger_texts();
  int silence_calls();
  // What SilenceStandardError answers from now on.
  void SetSilenceResult(platform::Status result);

  void WriteLine(std::string_view utf8) override;
  platform::Status SilenceStandardError() override;
  void WriteToDebugger(std::string_view utf8) override;

 private:
  Mutex mutex_;
  std::vector<std::string> lines_ KORVANE_GUARDED_BY(mutex_);
  std::vector<std::string> debugger_texts_ KORVANE_GUARDED_BY(mutex_);
  int silence_calls_ KORVANE_GUARDED_BY(mutex_) = 0;
  platform::Status silence_result_ KORVANE_GUARDED_BY(mutex_) = platform::Status::Ok();
};

}  // namespace korvane::test
