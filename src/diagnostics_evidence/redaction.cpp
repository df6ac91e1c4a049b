#include "diagnostics_evidence/redaction.h"

#include <utility>

#include "diagnostics_evidence/redaction_passes.h"

namespace korvane {

namespace {

constexpr int kDecodePasses = 4;
constexpr char kOmitted[] = "[omitted: encoded diagnostic]";

}  // namespace

std::string redactDiagnosticText(std::string_view text) {
  using namespace redaction;
  std::string clean = RemoveControls(std::string(text));
  // Decoding comes first, so that a URL can't slip through in an encoded form.
  for (int pass = 0; HasEncoding(clean); ++pass) {
    if (pass == kDecodePasses) {
      return kOmitted;
    }
    clean = DecodeOnce(clean);
  }
  // What was taken out or decoded may have held the halves of a control, or of an encoding, apart.
  // Both make the text shorter.
  if (clean.size() < text.size()) {
    clean = RemoveJoinedControls(RemoveControls(std::move(clean)));
    if (HasEncoding(clean)) {
      return kOmitted;
    }
  }
  clean = ReplaceUrls(std::move(clean));
  clean = ReplaceAddressTokens(std::move(clean));
  clean = ReplaceIpv4(std::move(clean));
  clean = ReplaceHosts(std::move(clean));
  return ReplaceLongTokens(std::move(clean));
}

}  // namespace korvane
