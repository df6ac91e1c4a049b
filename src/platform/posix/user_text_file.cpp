#include "platform/posix/user_text_file.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <string_view>

#include "platform/files.h"
#include "platform/posix/file_descriptor.h"
#include "platform/real_os.h"

namespace korvane::platform {
namespace {

using std::filesystem::path;

path EnvironmentPath(const char* name) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in the host changes the environment
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

Result<path> ConfigurationFolder() {
  if (const path configured = EnvironmentPath("XDG_CONFIG_HOME"); configured.is_absolute()) {
    return configured / "Korvane";
  }
  const path home = EnvironmentPath("HOME");
  return home.empty() ? Result<path>::Fail(ENOENT) : home / ".config" / "Korvane";
}

path WithSuffix(path file, const char* suffix) { return file += suffix; }

// An exclusive lock between processes, and between threads; closing the descriptor gives it back.
Result<FileDescriptor> Lock(const path& file) {
  FileDescriptor lock(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  while (!lock || ::flock(lock.get(), LOCK_EX) != 0) {
    if (!lock || errno != EINTR) {
      return Result<FileDescriptor>::Fail(static_cast<ErrorCode>(errno));
    }
  }
  return lock;
}

TextLines Split(std::string_view text) {
  TextLines lines;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.ends_with('\r')) {
      line.remove_suffix(1);
    }
    lines.emplace_back(line);
  }
  return lines;
}

Result<TextLines> ReadLines(const path& file) {
  Files& files = RealFiles();
  Result<File> opened = files.Open(file, OpenMode::kRead);
  if (!opened) {
    return files.IsNotFound(opened.error()) ? Result<TextLines>(TextLines{})
                                            : Result<TextLines>::Fail(opened.error());
  }
  const Result<std::string> text =
      files.Read(opened.value(), std::numeric_limits<std::uint64_t>::max());
  return text ? Result<TextLines>(Split(text.value())) : Result<TextLines>::Fail(text.error());
}

Status WriteDurably(const path& file, std::string_view text) {
  Files& files = RealFiles();
  Result<File> opened = files.Open(file, OpenMode::kWriteExclusive);
  if (!opened) {
    return Status::Fail(opened.error());
  }
  while (!text.empty()) {
    const Result<std::size_t> taken = files.Write(opened.value(), text);
    if (!taken) {
      return Status::Fail(taken.error());
    }
    text.remove_prefix(taken.value());
  }
  const Status flushed = files.Flush(opened.value());
  const Status closed = files.Close(opened.value());
  return flushed ? closed : flushed;
}

Status Replace(const path& file, const TextLines& lines) {
  std::string text;
  for (const std::string& line : lines) {
    text += line;
    text += '\n';
  }
  const path written = WithSuffix(file, ".tmp");
  const Status status = WriteDurably(written, text);
  return status ? RealFiles().Rename(written, file) : status;
}

}  // namespace

Result<TextLines> ReadUserText(const char* name) {
  const Result<path> folder = ConfigurationFolder();
  return folder ? ReadLines(folder.value() / name) : Result<TextLines>(TextLines{});
}

Status ChangeUserText(const char* name, const std::function<Status(TextLines&)>& change) {
  const Result<path> folder = ConfigurationFolder();
  if (!folder) {
    return Status::Fail(folder.error());
  }
  if (const Result<bool> made = RealFiles().CreateDirectories(folder.value()); !made) {
    return Status::Fail(made.error());
  }
  const path file = folder.value() / name;
  const Result<FileDescriptor> lock = Lock(WithSuffix(file, ".lock"));
  if (!lock) {
    return Status::Fail(lock.error());
  }
  Result<TextLines> lines = ReadLines(file);
  if (!lines) {
    return Status::Fail(lines.error());
  }
  const Status changed = change(lines.value());
  return changed ? Replace(file, lines.value()) : changed;
}

bool FitsInOneLine(std::string_view text) {
  return text.find_first_of("\r\n") == std::string_view::npos;
}

}  // namespace korvane::platform
