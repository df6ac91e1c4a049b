// exception_text.h: what an exception may say to the outside.
#pragma once

#include <exception>
#include <string>

namespace korvane {

// The redacted text of the exception that is being handled; empty when it is of no standard kind.
// Call inside a catch block only.
std::string RedactedExceptionText();

}  // namespace korvane
