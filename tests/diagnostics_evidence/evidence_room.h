// evidence_room.h: an evidence root of a test's own, on the real file system, with clocks that
// stand still and an error stream that keeps its lines.
//
// In force from its making to the end of its scope. The wall clock says 2024-01-02T03:04:05Z.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

#include "diagnostics_evidence/evidence_files.h"
#include "diagnostics_evidence/evidence_state.h"
#include "diagnostics_evidence/incident_manifest.h"
#include "platform/os.h"
#include "support/fake_clock.h"
#include "support/recording_error_stream.h"
#include "support/scoped_environment.h"
#include "support/temporary_folder.h"

namespace korvane::test {

inline constexpr char kNow[] = "2024-01-02T03:04:05Z";
inline constexpr char kNowId[] = "20240102T030405Z";

class EvidenceRoom {
  TemporaryFolder folder_;
  ScopedEnvironment app_data_{"APPDATA", folder_.path().string()};

 public:
  EvidenceState state = MakeEvidenceState();
  FakeClock clock;
  RecordingErrorStream errors;

  EvidenceRoom() {
    state.diagnostics_enabled = true;
    std::filesystem::create_directories(EvidencePath(state.incidents_dir));
  }

  // Creates or replaces a file, with the folders on its way. Paths are narrow and whole.
  void Put(const std::string& path, std::string_view bytes) {
    std::filesystem::create_directories(EvidencePath(path).parent_path());
    WriteBytes(EvidencePath(path), bytes);
  }
  // The bytes of a file; "<absent>" when there is none.
  std::string Get(const std::string& path) {
    return ReadBytes(EvidencePath(path)).value_or("<absent>");
  }
  // The folder of an incident, made if need be.
  std::string Incident(const std::string& id) {
    std::string directory = IncidentDirectory(state.incidents_dir, id);
    std::filesystem::create_directories(EvidencePath(directory));
    return directory;
  }

 private:
  platform::Os RealButForTimeAndErrors() {
    platform::Os os = platform::RealOs();
    os.clocks = &clock;
    os.error_stream = &errors;
    return os;
  }

  platform::Os os_ = RealButForTimeAndErrors();
  platform::ScopedOs in_force_{os_};
};

}  // namespace korvane::test
