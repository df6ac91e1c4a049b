// Redacts the log named by the first argument, "mixed" or "clean", once, and prints its bytes: a
// program to count instructions in.
#include <cstdio>
#include <string>
#include <string_view>

#include "diagnostics_evidence/redaction.h"
#include "samples.h"

int main(int argc, char** argv) {
  constexpr std::size_t kLogBytes = 1 << 20;
  const std::string_view kind = argc == 2 ? argv[1] : "";
  if (kind != "mixed" && kind != "clean") {
    std::fputs("usage: redact_once mixed|clean\n", stderr);
    return 2;
  }
  const std::string log = kind == "mixed" ? korvane::bench::MixedEngineLog(kLogBytes)
                                          : korvane::bench::CleanEngineLog(kLogBytes);
  const std::string redacted = korvane::redactDiagnosticText(log);
  std::printf("%zu\n", log.size());
  return redacted.empty() ? 1 : 0;
}
