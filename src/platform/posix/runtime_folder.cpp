#include "platform/posix/runtime_folder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

namespace korvane::platform {

namespace {

ErrorCode LastError() { return static_cast<ErrorCode>(errno); }

bool IsFolder(const char* path) {
  struct stat status {};
  return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

std::string FolderPath() {
  const char* session = secure_getenv("XDG_RUNTIME_DIR");
  if (session != nullptr && session[0] == '/' && IsFolder(session)) {
    return std::string(session) + "/korvane";
  }
  return "/tmp/korvane-" + std::to_string(geteuid());
}

Status CheckOwnFolder(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    return Status::Fail(LastError());
  }
  const bool ours = S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
                    (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
  return ours ? Status::Ok() : Status::Fail(EPERM);
}

}  // namespace

Result<std::filesystem::path> RuntimeFolder() {
  const std::string path = FolderPath();
  if (mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
    return Result<std::filesystem::path>::Fail(LastError());
  }
  const Status checked = CheckOwnFolder(path);
  if (!checked) {
    return Result<std::filesystem::path>::Fail(checked.error());
  }
  return std::filesystem::path(path);
}

}  // namespace korvane::platform
