// Arbitrary bytes as a diagnostic text: the filter comes to an end, what it gives it leaves alone,
// and what it gives is no longer than the text but for the words that it puts in.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "diagnostics_evidence/privacy_migration.h"
#include "diagnostics_evidence/redaction.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::string clean = korvane::redactDiagnosticText(text);
  constexpr std::size_t kLongestWord = 32;
  if (korvane::redactDiagnosticText(clean) != clean || clean.size() > size * 3 + kLongestWord) {
    std::abort();
  }
  // The same inside of a record: cleaning it once is enough, whatever stands in front of it.
  std::string record = text + R"({"close_error":"x"})" + text;
  if (korvane::migrateCloseErrors(record)) {
    std::string again = record;
    if (!korvane::migrateCloseErrors(again)) {
      std::abort();
    }
  }
  return 0;
}
