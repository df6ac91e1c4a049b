// redaction.h: the one filter for any text that may hold a user's server, address or key.
//
// Every engine text, breadcrumb, close error and excerpt passes it before it is logged, stored or
// sent. Pure; any thread; linear in time and constant in stack for any length and any bytes.
#pragma once

#include <string>
#include <string_view>

namespace korvane {

// Control sequences go, encodings are undone, then URLs become "[url]", addresses "[ip]", hosts
// with a port "[host]" and long tokens "[redacted]". A text that stays encoded after four decodings
// is replaced whole by "[omitted: encoded diagnostic]". Redacting redacted text changes nothing.
std::string redactDiagnosticText(std::string_view text);

}  // namespace korvane
