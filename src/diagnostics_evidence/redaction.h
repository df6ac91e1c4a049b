// redaction.h: the one filter for any text that may hold a user's server, address or key.
//
// Pure; any thread; linear in time and constant in stack for any length.
#pragma once

#include <string>

namespace korvane {

// Control sequences go, encodings are undone, then URLs become "[url]", addresses "[ip]", hosts
// with a port "[host]" and long tokens "[redacted]". A text that stays encoded after four decodings
// is replaced whole by "[omitted: encoded diagnostic]".
std::string redactDiagnosticText(const std::string& text);

}  // namespace korvane
