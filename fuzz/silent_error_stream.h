// silent_error_stream.h: an error stream that nobody reads, so that a fuzzer's report stands alone.
#pragma once

#include <string_view>

#include "platform/error_stream.h"

namespace korvane::fuzz {

class SilentErrorStream : public platform::ErrorStream {
 public:
  void WriteLine(std::string_view /*utf8*/) override {}
  platform::Status SilenceStandardError() override { return platform::Status::Ok(); }
  void WriteToDebugger(std::string_view /*utf8*/) override {}
};

}  // namespace korvane::fuzz
