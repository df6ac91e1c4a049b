// crash_output.h: the file into which a crash of the engine is written, when the host armed one.
#pragma once

#include <string>

namespace korvane::stand_in {

// Opens the file anew and writes its header line; an empty path disarms and leaves the file as it
// is. False when the file can't be opened, and then nothing is armed. Any thread.
bool SetCrashOutput(const std::string& utf8_path);

// Writes the report of a fatal error, where a file is armed.
void WriteCrashOutput();

}  // namespace korvane::stand_in
