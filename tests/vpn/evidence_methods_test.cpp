// The evidence's methods: what they carry to the interface, and what they answer when the disk or
// the registry refuses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

#include "diagnostics_evidence/libbox_log_buffer.h"
#include "vpn/disconnect_path.h"
#include "vpn/tunnel_fixture.h"
#include "vpn/vpn_event_stream.h"
#include "vpn/vpn_state.h"

namespace korvane::test {
namespace {

using flutter::EncodableList;
using flutter::EncodableMap;
using flutter::EncodableValue;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class EvidenceMethodsTest : public TunnelTest {
 protected:
  Answer Switch(bool enabled) {
    return Call("setWindowsDiagnosticsEnabled", EncodableMap{{"enabled", enabled}});
  }
  EncodableMap NewestIncident() {
    const Answer answer = Call("getPendingIncidents");
    const auto* archive = answer.value.GetIf<EncodableMap>();
    const auto* rows =
        archive == nullptr ? nullptr : flutter::FindIf<EncodableList>(*archive, "incidents");
    return rows == nullptr || rows->empty() ? EncodableMap() : *rows->front().GetIf<EncodableMap>();
  }
};

TEST_F(EvidenceMethodsTest, EndOfTheLastProcessIsListedWhole) {
  // Another process, which ended with its engine's close refused.
  LibboxLogBuffer earlier;
  ASSERT_TRUE(earlier.setWindowsDiagnosticsEnabled(true, nullptr));
  earlier.beginSession();
  earlier.recordShutdownIntent("user_disconnect");
  earlier.recordCloseResult(earlier.currentSessionId(), false, 5, "busy");
  Register();
  EXPECT_EQ(Call("importPendingIncidents").value, EncodableValue(true));
  const EncodableMap incident = NewestIncident();
  EXPECT_EQ(incident.size(), 26U);
  EXPECT_EQ(*flutter::FindIf<std::string>(incident, "sessionId"), earlier.currentSessionId());
  EXPECT_EQ(*flutter::FindIf<std::int32_t>(incident, "closeCode"), 5);
  EXPECT_EQ(*flutter::FindIf<std::string>(incident, "closeError"), "busy");
  EXPECT_EQ(Call("importPendingIncidents").value, EncodableValue(false)) << "nothing more to do";
}

TEST_F(EvidenceMethodsTest, UnexplainedEndIsReportedOnce) {
  LibboxLogBuffer earlier;
  ASSERT_TRUE(earlier.setWindowsDiagnosticsEnabled(true, nullptr));
  earlier.beginSession();
  earlier.recordBreadcrumb("last words", /*throttled=*/false);
  Register();
  Call("importPendingIncidents");
  EXPECT_TRUE(flutter::Find(NewestIncident(), "closeCode")->IsNull());
  const Answer answer = Call("checkForCrashLogs");
  const auto* summary = answer.value.GetIf<EncodableMap>();
  ASSERT_NE(summary, nullptr);
  EXPECT_THAT(*flutter::FindIf<std::string>(*summary, "summary"), HasSubstr("last words"));
  EXPECT_EQ(summary->size(), 3U);
  EXPECT_TRUE(Call("checkForCrashLogs").value.IsNull());
}

TEST_F(EvidenceMethodsTest, SwitchGivesARunningTunnelItsSession) {
  Register();
  Call("loadVPNPreference", EncodableMap{{"config", ProxyConfig()}});
  EXPECT_THAT(LibboxLogBuffer::instance().currentSessionId(), IsEmpty());
  EXPECT_EQ(Switch(true).value, EncodableValue(true));
  const std::string session = LibboxLogBuffer::instance().currentSessionId();
  EXPECT_THAT(session, Not(IsEmpty()));
  EXPECT_EQ(Switch(true).value, EncodableValue(true));
  EXPECT_EQ(LibboxLogBuffer::instance().currentSessionId(), session);
  dart.Heard();
  Call("refreshVPNStatus");
  EXPECT_THAT(dart.Heard(), ElementsAre("onVPNStateChanged vpn_connected"))
      << "what agrees with the truth is no decision to tell";
  StopBoxInternal(/*disable_proxy=*/true, "no such reason");
  EXPECT_THAT(ReadBytes(folder / "Korvane" / "libbox_shutdown_record.json").value_or(""),
              HasSubstr(R"("unknown")"));
  EXPECT_EQ(Call("getWindowsDiagnosticsEnabled").value, EncodableValue(true));
  EXPECT_EQ(Switch(false).value, EncodableValue(false));
  dart.Heard();
  PostVpnDiagnostic(VpnDiagnosticEvent());
  EXPECT_THAT(dart.Heard(), IsEmpty()) << "no decision while capture is off";
}

TEST_F(EvidenceMethodsTest, AFailedStartIsNoted) {
  Register();
  Switch(true);
  const std::function<std::int32_t(std::uint64_t)> ways[] = {
      [](std::uint64_t) { return 5; },
      [](std::uint64_t) -> std::int32_t { throw std::runtime_error("gone"); }};
  for (const auto& way : ways) {
    std::filesystem::remove(folder / "Korvane" / "libbox_failed_start");
    FakeEngine::Get().on_start = way;
    EXPECT_EQ(Call("loadVPNPreference", EncodableMap{{"config", ProxyConfig()}}).kind, "error");
    EXPECT_TRUE(std::filesystem::exists(folder / "Korvane" / "libbox_failed_start"));
    EXPECT_THAT(ReadBytes(folder / "Korvane" / "libbox_shutdown_record.json").value_or(""),
                HasSubstr(R"("reason":"failed_start","state":"requested")"));
  }
}

TEST_F(EvidenceMethodsTest, ARefreshDecidesByTheOperationThatRuns) {
  Register();
  Switch(true);
  const struct {
    std::int32_t depth;
    std::int32_t phase;
    const char* decision;
  } rows[] = {{1, kPhaseStarting, "suppress_terminal_connecting"},
              {1, kPhaseStopping, "suppress_terminal_disconnecting"},
              {0, kPhaseNone, "disconnected"}};
  for (const auto& [depth, phase, decision] : rows) {
    vpn_state().op_depth = depth;
    vpn_state().op_phase = phase;
    dart.Heard();
    Call("refreshVPNStatus");
    EXPECT_THAT(dart.Heard(),
                Contains(std::string("onVPNDiagnostic refreshVPNStatus ") + decision));
  }
}

TEST_F(EvidenceMethodsTest, RefusalsOfDiskAndRegistryAreAnswered) {
  Register();
  ASSERT_EQ(Switch(true).value, EncodableValue(true));
  std::filesystem::remove_all(folder / "Korvane" / "incidents");
  WriteBytes(folder / "Korvane" / "incidents", "a file where the archive should be");
  EXPECT_EQ(Call("getPendingIncidents").code, "ARCHIVE_UNREADABLE");
  EXPECT_EQ(Call("importPendingIncidents").code, "IMPORT_FAILED");
  settings.Deny(platform::RegistryHive::kCurrentUser, L"Software\\Korvane");
  const Answer refused = Switch(true);
  EXPECT_EQ(refused.code, "DIAGNOSTICS_PREFERENCE_FAILED");
  EXPECT_THAT(refused.message, Not(IsEmpty()));
}

}  // namespace
}  // namespace korvane::test
