// utf8.h: text that is fit for a channel.
//
// Dart decodes strings strictly: one stray byte makes a whole reply fail on its side. So every
// native text passes EnsureUtf8 before it becomes a channel value. Any thread; no state.
#pragma once

#include <string>
#include <string_view>

namespace korvane {

// True for well-formed UTF-8: no overlong form, no surrogate, nothing above U+10FFFF, no cut
// sequence. The empty text is valid.
bool IsValidUtf8(std::string_view text);

// The text as it is when it is valid UTF-8. Anything else is read as the system's ANSI code page;
// when the system makes nothing of it, each byte of 0x80 or above becomes a question mark.
std::string EnsureUtf8(std::string_view text);

}  // namespace korvane
