#include "support/host_driver/host_target.h"

#include <cstdlib>
#include <string>

namespace korvane::test {
namespace {

std::string Variable(const char* name) {
  const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nobody here sets any
  return value == nullptr ? "" : value;
}

}  // namespace

bool DrivesWindows() { return Variable("KORVANE_HOST") == "windows"; }

std::filesystem::path HostProgram() {
  const std::string built = DrivesWindows() ? KORVANE_WINDOWS_BIN_FOLDER : KORVANE_BIN_FOLDER;
  const auto given = Variable("KORVANE_HOST_BIN");
  return std::filesystem::absolute(given.empty() ? built : given) /
         (DrivesWindows() ? "korvane.exe" : "korvane");
}

}  // namespace korvane::test
