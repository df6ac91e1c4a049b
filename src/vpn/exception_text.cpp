#include "vpn/exception_text.h"

#include "diagnostics_evidence/redaction.h"
#include "flutter_boundary/utf8.h"

namespace korvane {

std::string RedactedExceptionText() {
  try {
    throw;
  } catch (const std::exception& error) {
    return redactDiagnosticText(EnsureUtf8(error.what()));
  } catch (...) {
    return {};
  }
}

}  // namespace korvane
