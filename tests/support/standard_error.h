// standard_error.h: the process's standard error as a loaded library sees it.
#pragma once

#include <string_view>

namespace korvane::test {

// Writes past all streams: the standard error handle on Windows, descriptor 2 on Linux.
void WriteAsLoadedLibrary(std::string_view text);

}  // namespace korvane::test
