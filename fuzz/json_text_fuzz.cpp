// Arbitrary bytes for the textual readers of the evidence's JSON, and as values that its writers
// must bring through.
#include <algorithm>
#include <cstdint>
#include <string>

#include "diagnostics_evidence/incident_manifest.h"
#include "diagnostics_evidence/json_text.h"
#include "diagnostics_evidence/shutdown_record.h"
#include "platform/os.h"
#include "require.h"
#include "silent_error_stream.h"

namespace {

using korvane::fuzz::Require;

// The readers leave \u escapes as they are, so a value with such a byte comes back spelt out.
bool ComesBackAsItIs(const std::string& text) {
  return std::ranges::none_of(text, [](char byte) {
    return static_cast<unsigned char>(byte) < 0x20 && byte != '\n' && byte != '\r' && byte != '\t';
  });
}

void Read(const std::string& text) {
  for (const char* key : {"session_id", "state", "close_code", ""}) {
    static_cast<void>(korvane::jsonStringField(text, key));
    static_cast<void>(korvane::jsonIntField(text, key));
  }
  static_cast<void>(korvane::FindShutdownMember(text));
  static_cast<void>(korvane::ReadImportErrors(text));
  static_cast<void>(korvane::ParseShutdownRecord(text));
}

void WriteAndRead(const std::string& text) {
  korvane::ManifestFields fields;
  fields.incident_id = "20240102T030405Z-x";
  fields.session_id = text;
  fields.import_errors = {text, "behind it"};
  const std::string manifest = korvane::writeIncidentManifest(fields);
  const auto errors = korvane::ReadImportErrors(manifest);
  Require(errors.size() == 2 && errors[1] == "behind it");
  if (ComesBackAsItIs(text)) {
    Require(korvane::jsonStringField(manifest, "session_id") == text);
    Require(errors[0] == text);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  korvane::fuzz::SilentErrorStream silent;
  korvane::platform::Os os = korvane::platform::RealOs();
  os.error_stream = &silent;
  const korvane::platform::ScopedOs scope(os);
  const std::string text(reinterpret_cast<const char*>(data), size);
  Read(text);
  WriteAndRead(text);
  return 0;
}
