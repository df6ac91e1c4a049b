// error_stream.h: the process's error stream, to which the host writes its free lines.
//
// One sink for narrow and wide lines: mixing the library's two streams loses text, so everything is
// UTF-8 by the time it gets here. Each call writes one line whole, so lines of two threads never
// mix. Any thread.
#pragma once

#include <string_view>

#include "platform/result.h"

namespace korvane::platform {

class ErrorStream {
 public:
  virtual ~ErrorStream() = default;

  // Writes the text and a line end, unbuffered. A failure is nobody's business. An embedded line
  // feed is written as it is. (On Windows the C stream is in text mode: the line ends in CR LF.)
  virtual void WriteLine(std::string_view utf8) = 0;

  // Sends the process's standard error, as a loaded library sees it, to the null device for good;
  // WriteLine keeps reaching the stream that the process was started with.
  // Windows: CreateFileW("NUL", GENERIC_WRITE, share read and write, OPEN_EXISTING, normal), then
  // SetStdHandle(STD_ERROR_HANDLE); on its failure the handle is closed. The C stream is not
  // affected by that. Linux: descriptor 2 is kept aside under another number, then /dev/null is put
  // in its place.
  virtual Status SilenceStandardError() = 0;

  // Text for an attached debugger (OutputDebugStringA). Linux: nothing.
  virtual void WriteToDebugger(std::string_view utf8) = 0;
};

}  // namespace korvane::platform
