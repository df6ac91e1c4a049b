// command_line_words.h: splits a Windows command line into its words, as CommandLineToArgvW does.
//
// A quote begins or ends a part in which blanks don't separate. Backslashes are themselves, except
// in front of a quote: there two of them make one, and an odd last one makes the quote a plain
// character. Three quotes in a row that end or make a part give one quote. Any thread; no state.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace korvane::platform {

// A whole line. Its first word, the program, knows no backslash rule: a quoted one ends at the next
// quote, any other at the first blank. Precondition: not empty (the system call would then give the
// program's own path).
std::vector<std::wstring> CommandLineWords(std::wstring_view line);

// The part of a line behind the program.
std::vector<std::wstring> ParameterWords(std::wstring_view parameters);

}  // namespace korvane::platform
