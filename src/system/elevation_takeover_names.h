// elevation_takeover_names.h: the texts that parent and child of a takeover must agree on.
//
// Pure functions of values; any thread.
#pragma once

#include <string>
#include <string_view>

#include "platform/identifiers.h"

namespace korvane {

// 32 upper-case hexadecimal digits.
std::wstring TakeoverToken(const platform::Guid& guid);

std::wstring TakeoverRequestEventName(const std::wstring& token);
std::wstring TakeoverReadyEventName(const std::wstring& token);

// The child's command line behind the program name.
std::wstring TakeoverChildParameters(const std::wstring& token, const std::wstring& parent_sid);

// 1 to 64 hexadecimal digits of either case.
bool IsTakeoverToken(std::string_view text);

// 5 to 256 characters that begin "S-" and are digits, '-' or 'S'.
bool IsSidText(std::string_view text);

// Equal but for the case of ASCII letters.
bool EqualIgnoringCase(std::wstring_view left, std::wstring_view right);

}  // namespace korvane
