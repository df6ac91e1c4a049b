// host_process.h: what the library must know of the process that it was loaded into.
#pragma once

#include <filesystem>
#include <string_view>

namespace korvane::stand_in {

// Where the library lies, by the path under which it was loaded.
std::filesystem::path LibraryFolder();

// Writes to the standard error that the system gives a loaded library (descriptor 2; the handle of
// GetStdHandle), past every stream of the C library, as the engine's runtime does.
void WriteToStandardError(std::string_view bytes);

}  // namespace korvane::stand_in
