// log_file.h: startup.log as a file: opening, appending, rotation, and the report of each failure.
//
// On disk, in the user's local application data folder, then "com.sundrelak", then "dramvex":
//
//   startup.log     lines of all processes of the user, appended; at most 262144 bytes as long as
//                   rotation works
//   startup.log.1   what startup.log held before it was last emptied, by whichever process did that
//
// A write that would take startup.log past its bound copies it over startup.log.1 and empties it in
// place, so that no process has to open it anew. The named mutex "Global\Korvane_StartupLog"
// serialises rotation and write across threads and processes; it is waited for 100 ms at most, and
// under contention a line is lost rather than its caller stalled. Nothing is flushed to the disk.
//
// A failure ends in a report: the line that it befell, with the failure's name and number in it, to
// the debugger and the error stream, never to the file.
//
//   name                          number           the line
//   local_app_data_failed         HRESULT          none is ever written
//   log_directory_failed          system's error   none is ever written
//   log_mutex_create_failed       system's error   none is ever written
//   log_open_failed               system's error   none is ever written
//   log_line_too_large            0                dropped
//   log_unavailable               0                dropped
//   log_mutex_timeout             0                dropped
//   log_mutex_wait_failed         system's error   dropped
//   log_mutex_abandoned           0                written
//   log_size_failed               system's error   written, without rotation
//   log_rotation_copy_failed      system's error   written, after the old content is lost
//   log_rotation_seek_failed      system's error   written, no rotation by this process any more
//   log_rotation_truncate_failed  system's error   written, no rotation by this process any more
//   log_write_failed              system's error   not written
//   log_short_write               bytes written    partly written
//   log_mutex_release_failed      system's error   written
//   log_close_failed              system's error   at exit
//   log_mutex_close_failed        system's error   at exit
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "platform/files.h"
#include "platform/kernel_objects.h"

namespace korvane {

// Both count the line's line feed.
inline constexpr std::size_t kLargestLine = 262144;
inline constexpr std::uint64_t kLargestLog = 262144;

// Write may be called by any number of threads at once, in this process and in others.
class LogFile {
 public:
  // Opens the log, reporting a failure under the given line. The object lives on after a failure,
  // and each line then ends in `log_unavailable`.
  explicit LogFile(std::string_view line);
  // Closes the log, reporting a failure under the closing line.
  ~LogFile();
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  // Appends one line, its line feed included. Throws nothing.
  void Write(std::string_view line);

  // To be set before the last owner lets go; without it nothing is reported about closing.
  void SetClosingLine(std::string line) { closing_line_ = std::move(line); }

 private:
  bool FindPlace(std::string_view line);
  void Open(std::string_view line);
  bool Acquire(std::string_view line);
  void RotateWhenFull(std::string_view line);
  void Empty(std::string_view line);
  void Append(std::string_view line);

  // Set by the constructor alone.
  std::filesystem::path log_path_;
  std::filesystem::path rotated_path_;
  platform::KernelHandle log_mutex_;
  platform::File log_file_;

  bool rotation_disabled_ = false;  // read and set under the named mutex; never cleared
  std::string closing_line_;
};

// Tells the debugger and the error stream what went wrong with a line: the line, with
// `recorder_failure` and `os_error` as its last two keys. Throws nothing; without memory for the
// report there is none.
void ReportFailure(std::string_view line, std::string_view name, std::uint32_t code) noexcept;

}  // namespace korvane
