// json_text.h: JSON written by fixed templates and read by textual scans.
//
// The evidence's files are flat enough for this: their writers emit a fixed order of keys, and a
// reader takes the first occurrence of a quoted key at any depth. Pure, any thread, linear in time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace korvane {

// Escapes a double quote, a backslash, tab, line feed and carriage return with a backslash and
// their usual letter, any other byte below 32 as \u00xx. Bytes of 32 and above pass unchanged.
std::string jsonEscape(std::string_view text);

// The unescaped text value of a key: behind the first quoted key, the first colon behind that, the
// first quote behind that, up to its closing quote. Empty when absent. A \u escape isn't decoded.
std::string jsonStringField(std::string_view text, std::string_view key);

// The integer behind a key; absent when there are no digits. A value outside 32 bits is absent too,
// and said on the error stream.
std::optional<std::int32_t> jsonIntField(std::string_view text, std::string_view key);

// The place of the quote that closes a string whose content begins at `begin`; npos when there is
// none. A quote closes when an even number of backslashes stands in front of it.
std::size_t FindClosingQuote(std::string_view text, std::size_t begin);

// Undoes the escapes of a double quote, a slash, a backslash, line feed, carriage return and tab.
// Any other backslash stays as it stands.
std::string JsonUnescape(std::string_view text);

}  // namespace korvane
