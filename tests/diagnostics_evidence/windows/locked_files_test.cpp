// Evidence that another program holds open: nothing moves before it lets go, and then all of it
// does.
#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "diagnostics_evidence/evidence_room.h"
#include "diagnostics_evidence/incident_import.h"
#include "diagnostics_evidence/incident_listing.h"

namespace korvane::test {
namespace {

// Opens a file for itself alone, as long as it lives.
class LockedFile {
 public:
  explicit LockedFile(const std::string& path)
      : handle_(CreateFileW(EvidencePath(path).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0,
                            nullptr)) {
    EXPECT_NE(handle_, INVALID_HANDLE_VALUE);
  }
  ~LockedFile() { CloseHandle(handle_); }
  LockedFile(const LockedFile&) = delete;
  LockedFile& operator=(const LockedFile&) = delete;

 private:
  HANDLE handle_;
};

void LeaveCrash(EvidenceRoom& room) {
  room.Put(room.state.session_active_path, R"({"session_id":"s1"})");
  room.Put(room.state.session_log_path, "a line\n");
  room.Put(room.state.base_dir + "crash-output.s1.log", "panic\n");
}

TEST(LockedEvidence, HoldsUpTheImportUntilItIsLetGo) {
  struct Row {
    const char* name;
    const char* error;
  };
  const Row rows[] = {
      {"libbox_session_active",
       "import aborted: session-active marker exists but could not be read; sources untouched, "
       "retry at the next session boundary"},
      {"libbox_session.log", "a source file could not be moved into the incident"},
      {"crash-output.s1.log", "a source file could not be moved into the incident"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EvidenceRoom room;
    LeaveCrash(room);
    {
      const LockedFile locked(room.state.base_dir + row.name);
      EXPECT_FALSE(importPreviousSession(room.state, "boot"));
      EXPECT_EQ(room.state.last_import_error, row.error);
      EXPECT_TRUE(std::filesystem::exists(EvidencePath(room.state.session_active_path)));
    }
    EXPECT_TRUE(importPreviousSession(room.state, "boot"));
    std::string failure;
    const auto incidents = ListIncidentRows(room.state, failure);
    ASSERT_EQ(incidents.size(), 1U);
    EXPECT_EQ(incidents[0].session_id, "s1");
    EXPECT_EQ(incidents[0].crash_output_excerpt, "panic\n");
    for (const auto& entry :
         std::filesystem::directory_iterator(EvidencePath(room.state.base_dir))) {
      EXPECT_TRUE(entry.is_directory()) << entry.path();
    }
  }
}

TEST(LockedEvidence, InTheArchiveIsHeldBackFromTheListing) {
  EvidenceRoom room;
  LeaveCrash(room);
  EXPECT_TRUE(importPreviousSession(room.state, "boot"));
  const std::string file =
      room.state.incidents_dir + std::string(kNowId) + "-s1\\crash-output.s1.log";
  std::string failure;
  {
    const LockedFile locked(file);
    EXPECT_THAT(ListIncidentRows(room.state, failure), testing::IsEmpty());
    EXPECT_EQ(failure, "privacy migration failed; evidence withheld");
    EXPECT_FALSE(AcknowledgeIncident(room.state, std::string(kNowId) + "-s1", 0));
  }
  EXPECT_THAT(ListIncidentRows(room.state, failure), testing::SizeIs(1));
  EXPECT_EQ(failure, "");
}

}  // namespace
}  // namespace korvane::test
