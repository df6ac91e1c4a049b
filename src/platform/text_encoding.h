// text_encoding.h: between UTF-8, wide text, the process code page, and paths.
//
// Wide text is std::wstring: UTF-16 on Windows, UTF-32 on Linux. "Narrow" text is in the system's
// ANSI code page: on Windows whatever the process has; on Linux a path's bytes stay what they are,
// and AnsiToUtf8 reads Windows-1252, so that both systems treat stray bytes alike.
// Any thread; no state.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "platform/result.h"

namespace korvane::platform {

class TextEncoding {
 public:
  virtual ~TextEncoding() = default;

  // Text in the ANSI code page as UTF-8; empty when the system can't convert it.
  // Windows: MultiByteToWideChar(CP_ACP, 0), then WideCharToMultiByte(CP_UTF8, 0).
  virtual std::string AnsiToUtf8(std::string_view text) = 0;

  // Wide text as UTF-8, strictly: nothing for a lone surrogate (or, on Linux, for a value that is
  // no character). Windows: WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS = 0x80).
  virtual std::optional<std::string> WideToUtf8(std::wstring_view text) = 0;

  // Wide text as UTF-8 with U+FFFD for what can't be converted. For the error stream only.
  virtual std::string WideToUtf8Lossy(std::wstring_view text) = 0;

  // UTF-8 as wide text, strictly: nothing for invalid input.
  // Windows: MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS).
  virtual std::optional<std::wstring> Utf8ToWide(std::string_view text) = 0;

  // A narrow path as the system's own kind of path, and back. On Windows through CP_ACP, since the
  // library's own conversions know no code page; on Linux the bytes as they are.
  virtual std::filesystem::path PathFromNarrow(std::string_view path) = 0;
  virtual std::string NarrowFromPath(const std::filesystem::path& path) = 0;

  // A wide path, as Process gives them, as the system's own kind. On Linux the library's own
  // conversion refuses everything but ASCII; here a byte that was no UTF-8 comes back as it was.
  virtual std::filesystem::path PathFromWide(std::wstring_view path) = 0;

  // The separator that joins a folder and a name in a narrow path: '\' on Windows, '/' on Linux.
  virtual char PathSeparator() = 0;

  // The system's own words for an error number (std::system_category), without a line end.
  virtual std::string ErrorMessage(ErrorCode error) = 0;
};

}  // namespace korvane::platform
