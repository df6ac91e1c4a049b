#include "recorder/log_file.h"

#include <exception>
#include <utility>

#include "platform/os.h"

namespace korvane {

namespace {

constexpr wchar_t kLogMutexName[] = L"Global\\Korvane_StartupLog";
constexpr std::uint32_t kMutexWaitMs = 100;

std::string FailureText(std::string_view line, std::string_view name, std::uint32_t code) {
  line.remove_suffix(2);  // the closing brace and the line feed
  std::string text(line);
  text += R"(,"recorder_failure":")";
  text += name;
  text += R"(","os_error":)";
  text += std::to_string(code);
  text += "}\n";
  return text;
}

}  // namespace

void ReportFailure(std::string_view line, std::string_view name, std::uint32_t code) noexcept {
  try {
    const std::string text = FailureText(line, name, code);
    platform::os().error_stream->WriteToDebugger(text);
    // The stream ends its lines itself.
    platform::os().error_stream->WriteLine(std::string_view(text).substr(0, text.size() - 1));
  } catch (const std::exception&) {
    // No memory for the report. The caller may hold the named mutex and must come to release it.
  }
}

LogFile::LogFile(std::string_view line) {
  if (FindPlace(line)) {
    Open(line);
  }
}

bool LogFile::FindPlace(std::string_view line) {
  const auto local_data = platform::os().process->LocalApplicationData();
  if (!local_data) {
    ReportFailure(line, "local_app_data_failed", local_data.error());
    return false;
  }
  const std::filesystem::path folder =
      platform::os().text->PathFromWide(local_data.value()) / "com.sundrelak" / "dramvex";
  const auto made = platform::os().files->CreateDirectories(folder);
  if (!made) {
    ReportFailure(line, "log_directory_failed", made.error());
    return false;
  }
  log_path_ = folder / "startup.log";
  rotated_path_ = folder / "startup.log.1";
  return true;
}

void LogFile::Open(std::string_view line) {
  platform::CreatedMutex created =
      platform::os().kernel_objects->CreateNamedMutex(kLogMutexName, /*initially_owned=*/false);
  if (!created.handle) {
    ReportFailure(line, "log_mutex_create_failed", created.code);
    return;
  }
  log_mutex_ = std::move(created.handle);

  auto opened = platform::os().files->Open(log_path_, platform::OpenMode::kAppendLog);
  if (!opened) {
    ReportFailure(line, "log_open_failed", opened.error());
    return;
  }
  log_file_ = opened.take();
}

LogFile::~LogFile() {
  if (closing_line_.empty()) {  // coverage: a log is made to write a line at once
    return;
  }
  if (log_file_) {
    const platform::Status closed = platform::os().files->Close(log_file_);
    if (!closed) {
      ReportFailure(closing_line_, "log_close_failed", closed.error());
    }
  }
  if (log_mutex_) {
    const platform::Status closed = platform::os().kernel_objects->Close(log_mutex_);
    if (!closed) {
      ReportFailure(closing_line_, "log_mutex_close_failed", closed.error());
    }
  }
}

void LogFile::Write(std::string_view line) {
  if (line.size() > kLargestLine) {
    ReportFailure(line, "log_line_too_large", 0);
    return;
  }
  if (!log_mutex_ || !log_file_) {
    ReportFailure(line, "log_unavailable", 0);
    return;
  }
  if (!Acquire(line)) {
    return;
  }
  RotateWhenFull(line);
  Append(line);
  const platform::Status released = platform::os().kernel_objects->ReleaseMutex(log_mutex_);
  if (!released) {
    ReportFailure(line, "log_mutex_release_failed", released.error());
  }
}

// Whether this thread now owns the named mutex.
bool LogFile::Acquire(std::string_view line) {
  const auto [result, error] = platform::os().kernel_objects->Wait(log_mutex_, kMutexWaitMs);
  switch (result) {
    case platform::kWaitSignalled:
      return true;
    case platform::kWaitAbandoned:
      ReportFailure(line, "log_mutex_abandoned", 0);
      return true;
    case platform::kWaitTimeout:
      ReportFailure(line, "log_mutex_timeout", 0);
      return false;
    default:
      ReportFailure(line, "log_mutex_wait_failed", error);
      return false;
  }
}

void LogFile::RotateWhenFull(std::string_view line) {
  const auto size = platform::os().files->Size(log_file_);
  if (!size) {
    ReportFailure(line, "log_size_failed", size.error());
    return;
  }
  if (rotation_disabled_ || size.value() + line.size() <= kLargestLog) {
    return;
  }
  const platform::Status copied = platform::os().files->Copy(log_path_, rotated_path_);
  if (!copied) {
    ReportFailure(line, "log_rotation_copy_failed", copied.error());
  }
  // Kept on purpose: the log is emptied even when its copy failed. It is bounded before it is
  // complete.
  Empty(line);
}

void LogFile::Empty(std::string_view line) {
  const platform::Status sought = platform::os().files->SeekToStart(log_file_);
  if (!sought) {
    ReportFailure(line, "log_rotation_seek_failed", sought.error());
    rotation_disabled_ = true;
    return;
  }
  const platform::Status truncated = platform::os().files->TruncateHere(log_file_);
  if (!truncated) {
    ReportFailure(line, "log_rotation_truncate_failed", truncated.error());
    rotation_disabled_ = true;
  }
}

void LogFile::Append(std::string_view line) {
  const auto written = platform::os().files->Write(log_file_, line);
  if (!written) {
    ReportFailure(line, "log_write_failed", written.error());
  } else if (written.value() < line.size()) {
    // Kept on purpose: the number says how many bytes went out; a short write has no error.
    ReportFailure(line, "log_short_write", static_cast<std::uint32_t>(written.value()));
  }
}

}  // namespace korvane
