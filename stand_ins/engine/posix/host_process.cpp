#include "engine/host_process.h"

#include <dlfcn.h>
#include <unistd.h>

namespace korvane::stand_in {

std::filesystem::path LibraryFolder() {
  Dl_info info{};
  if (::dladdr(reinterpret_cast<const void*>(&LibraryFolder), &info) == 0) {
    return {};
  }
  return std::filesystem::path(info.dli_fname).parent_path();
}

void WriteToStandardError(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(STDERR_FILENO, bytes.data(), bytes.size());
    if (written <= 0) {
      return;
    }
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace korvane::stand_in
