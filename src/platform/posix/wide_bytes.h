// wide_bytes.h: the system's texts, which are bytes here, as wide text and back without loss.
//
// A byte that is not part of valid UTF-8 becomes a lone surrogate (0xDC00 + byte), which a strict
// conversion refuses and BytesFromWide turns back into the byte. Any thread; no state.
#pragma once

#include <string>
#include <string_view>

namespace korvane::platform {

std::wstring WideFromBytes(std::string_view bytes);

// What is neither a character nor such a surrogate becomes U+FFFD.
std::string BytesFromWide(std::wstring_view text);

}  // namespace korvane::platform
