// An evidence root in which another process of the user has laid traps. Nothing outside of it is
// read, moved or removed, and what is stated of the traps is true.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "diagnostics_evidence/evidence_room.h"
#include "diagnostics_evidence/libbox_log_buffer.h"
#include "support/fake_machine.h"
#include "support/links.h"

namespace korvane::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;

class HostileRoot : public testing::Test {
 protected:
  HostileRoot() {
    platform::Os os = platform::os();
    os.registry = &registry_;
    in_force_.emplace(os);
    registry_.values[L"Software\\Korvane\\WindowsDiagnosticsEnabled"] = 1;
    std::filesystem::create_directories(Outside());
    WriteBytes(Outside() / "manifest.json", Manifest("elsewhere"));
    WriteBytes(Outside() / "precious.txt", "precious at 10.11.12.13");
  }

  std::filesystem::path Outside() const { return elsewhere_ / "outside"; }
  std::filesystem::path InArchive(const std::string& name) const {
    return EvidencePath(room_.state.incidents_dir) / name;
  }

  static std::string Manifest(const std::string& id) {
    return R"({"schema":1,"incident_id":")" + id + R"(","session_id":"s","reason":"clean"})";
  }
  void PutIncident(const std::string& id) {
    room_.Put(room_.Incident(id) + "manifest.json", Manifest(id));
  }

  void ExpectOutsideUntouched() const {
    EXPECT_EQ(ReadBytes(Outside() / "manifest.json"), Manifest("elsewhere"));
    EXPECT_EQ(ReadBytes(Outside() / "precious.txt"), "precious at 10.11.12.13");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(Outside()), {}), 2);
  }

  TemporaryFolder elsewhere_;
  EvidenceRoom room_;
  CallJournal journal_;
  FakeRegistry registry_{journal_};
  std::optional<platform::ScopedOs> in_force_;
};

TEST_F(HostileRoot, LinksAreNeitherFollowedNorRemoved) {
  for (const char* id : {"20240101T000000Z-a", "20240101T000001Z-b", "20240101T000002Z-c",
                         "20240101T000003Z-d", "20240101T000004Z-e"}) {
    PutIncident(id);
  }
  const FolderLink as_incident(Outside(), InArchive("20230101T000000Z-x"));
  const FolderLink in_incident(Outside(), InArchive("20240101T000000Z-a") / "more");

  LibboxLogBuffer evidence;
  room_.Put(room_.state.session_active_path, R"({"session_id":"s9"})");
  EXPECT_TRUE(evidence.importPendingIncidents(nullptr));  // and throws the oldest out
  EXPECT_THAT(evidence.getPendingIncidents(nullptr),
              Each(Field(&IncidentRow::id, testing::Not(HasSubstr("Z-x")))));
  EXPECT_TRUE(std::filesystem::exists(InArchive("20240101T000000Z-a")))
      << "a folder with a link in it can't go";
  EXPECT_FALSE(std::filesystem::exists(InArchive("20240101T000001Z-b")));
  ExpectOutsideUntouched();

  std::string failure;
  EXPECT_FALSE(evidence.setWindowsDiagnosticsEnabled(false, &failure)) << "not all is gone";
  EXPECT_NE(failure, "");
  EXPECT_FALSE(evidence.getWindowsDiagnosticsEnabled());
  EXPECT_FALSE(std::filesystem::exists(InArchive("20240101T000002Z-c")));
  ExpectOutsideUntouched();
}

TEST_F(HostileRoot, WhatIsNoIncidentHidesNoOther) {
  PutIncident("20240101T000000Z-a");
  room_.Put(room_.Incident("no time") + "manifest.json", std::string(20'000'000, '{'));
  room_.Put(room_.Incident("20240101T000001Z-b") + "manifest.json/a folder", "x");
  room_.Put(room_.Incident("20240101T000002Z-c") + "pending/a folder", "x");
  room_.Put(room_.Incident("20240101T000003Z-d") + "acknowledged/a folder", "x");
  room_.Put(room_.state.incidents_dir + "a file", "x");
  LibboxLogBuffer evidence;
  EXPECT_TRUE(evidence.importPendingIncidents(nullptr));
  std::vector<std::string> shown;
  for (const IncidentRow& row : evidence.getPendingIncidents(nullptr)) {
    shown.push_back(row.id);
  }
  // An incident without a manifest gets one; where a folder stands in the way it is held back.
  EXPECT_THAT(shown, ElementsAre("no time", "20240101T000003Z-d", "20240101T000000Z-a"));
}

}  // namespace
}  // namespace korvane::test
