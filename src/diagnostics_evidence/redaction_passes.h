// redaction_passes.h: the single passes of the redaction, each one sweep over the bytes.
//
// Each pass replaces the leftmost matches of one ECMAScript expression, read over bytes with \d,
// \s, \b in their ASCII sense. The expression is the definition and stands beside its pass; it is
// matched by hand, since the library's engine recurses for each character of a run and a long token
// would overflow the stack. A differential test holds the two together.
//
// A text in which nothing is replaced comes back as it was given, without a copy when it is moved
// in.
#pragma once

#include <string>
#include <string_view>

namespace korvane::redaction {

// \x1B(?:\[[0-?]*[
// -/]*[@-~]|\][^\x07\x1B]*(?:\x07|\x1B\\))|[\x00-\x08\x0B-\x1F\x7F]|\xC2[\x80-\x9F] goes: ANSI
// sequences, C0 controls other than tab and line feed, DEL, C1 controls.
std::string RemoveControls(std::string text);

// Removes what one RemoveControls left behind by joining bytes, until no control is left.
std::string RemoveJoinedControls(std::string text);

// %([0-9a-fA-F]{2})|\\u00([0-9a-fA-F]{2})  becomes the one byte that its two digits give.
std::string DecodeOnce(std::string_view text);
bool HasEncoding(std::string_view text);

// [a-zA-Z][a-zA-Z0-9+.-]*://[^\s"']+  becomes "[url]".
std::string ReplaceUrls(std::string text);

// [0-9A-Fa-f:.]+(?:%[A-Za-z0-9_.~-]+)?  becomes "[ip]" when it holds "::" or at least three colons;
// a time of day or a plain number stays.
std::string ReplaceAddressTokens(std::string text);

// \d{1,3}(?:\.\d{1,3}){3}(?::\d{1,5})?  becomes "[ip]".
std::string ReplaceIpv4(std::string text);

// \b(?:[A-Za-z0-9](?:[A-Za-z0-9-]*[A-Za-z0-9])?\.)+[A-Za-z]{2,}:\d{1,5}\b  becomes "[host]", but
// for a source position such as "service.go:120", which stays.
std::string ReplaceHosts(std::string text);

// \b[A-Za-z0-9+/_-]{24,}={0,2}\b  becomes "[redacted]".
std::string ReplaceLongTokens(std::string text);

}  // namespace korvane::redaction
