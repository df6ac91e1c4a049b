#include "support/standard_error.h"

#include <unistd.h>

namespace korvane::test {

void WriteAsLoadedLibrary(std::string_view text) {
  [[maybe_unused]] const auto taken = ::write(STDERR_FILENO, text.data(), text.size());
}

}  // namespace korvane::test
