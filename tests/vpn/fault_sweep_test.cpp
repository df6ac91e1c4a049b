// A connect and its stop with every operation of the platform failed in turn, once and from there
// on; the journal watches that a stop closes the engine before it clears the proxy.
#include "support/fault_sweep.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/counting_os.h"
#include "support/memory_files.h"
#include "vpn/tunnel_fixture.h"
#include "vpn/vpn_state.h"

namespace korvane::test {
namespace {

using flutter::EncodableMap;
using flutter::EncodableValue;
using ::testing::Contains;

constexpr char kVpnChannel[] = "com.sundrelak.korvane/vpn";

class FaultSweepTest : public TunnelTest {
 protected:
  FaultSweepTest() {
    in_memory_.files = &files_;
    scope_.emplace(in_memory_);
    Register();
  }

  // Evidence is kept on the way, and its faults must not matter. Each round begins without any.
  void KeepEvidenceAnew() {
    Ask("setWindowsDiagnosticsEnabled", EncodableMap{{"enabled", false}});
    EXPECT_EQ(Ask("setWindowsDiagnosticsEnabled", EncodableMap{{"enabled", true}}).value,
              EncodableValue(true));
  }

  // A call that must be answered, and once.
  Answer Ask(const std::string& method, const EncodableValue& arguments = {}) {
    const int delivery = dart.Deliver(kVpnChannel, method, arguments);
    Answer answer = dart.Await(delivery);
    EXPECT_EQ(dart.Replies(delivery), 1) << method;
    return answer;
  }

  // What holds behind each call: the last word that was sent is the truth.
  void CheckTruth() {
    const std::string status = std::get<std::string>(Ask("getStatus").value.content());
    const auto heard = dart.Heard();
    const auto last = std::find_if(heard.rbegin(), heard.rend(), [](const std::string& line) {
      return line.starts_with("onVPNStateChanged ");
    });
    if (last != heard.rend()) {
      EXPECT_EQ(*last, "onVPNStateChanged vpn_" + status);
    }
    EXPECT_EQ(Ask("isRunning").value, EncodableValue(status == "connected"));
    EXPECT_EQ(vpn_state().op_depth, 0);
  }

  // One round under the plan; false when it met no operation any more.
  bool Round(const CountingPlan& plan) {
    KeepEvidenceAnew();
    const bool met = MeetsFault(plan, [this] {
      Ask("loadVPNPreference",
          EncodableMap{{"config", ProxyConfig()}, {"autoConfigureProxy", true}});
      CheckTruth();
      Ask("stopVPN");
      CheckTruth();
    });
    // With everything well again a stop brings all down.
    EXPECT_EQ(Ask("stopVPN").value, EncodableValue(true));
    EXPECT_EQ(Ask("getStatus").value, EncodableValue("disconnected"));
    EXPECT_EQ(proxy.Query().value().flags, 1U) << "the proxy is off";
    journal.Take();
    dart.Heard();
    return met;
  }

 private:
  MemoryFiles files_;
  platform::Os in_memory_ = platform::os();
  std::optional<platform::ScopedOs> scope_;
};

TEST_F(FaultSweepTest, EveryCallIsAnsweredOnceWhateverFails) {
  SweepFaults("connect and stop", 100, [this](const CountingPlan& plan) { return Round(plan); });
}

// No operation promises to throw, but memory may run out in any.
TEST_F(FaultSweepTest, AWorkerAnswersWhateverIsThrownInIt) {
  struct Case {
    const char* method;
    EncodableValue arguments;
    const char* thrower;
    const char* told;
    const char* code;
  };
  const EncodableMap preference{{"config", ProxyConfig()}, {"autoConfigureProxy", true}};
  const Case cases[] = {
      {"loadVPNPreference", preference, "Files.Open",
       "[ERROR] Background thread: Exception in StartBox (loadVPNPreference): ",
       "CONNECTION_FAILED"},
      {"connectForNodeSwitching", ProxyConfig(), "Files.Open",
       "[ERROR] Background thread: Exception in StartBox (node switching): ", "CONNECTION_FAILED"},
      {"doConnectVpn",
       {},
       "Files.Open",
       "[ERROR] Background thread: Exception in StartBox: ",
       "CONNECTION_FAILED"},
      {"stopVPN",
       {},
       "ProxySettings.Store",
       "[ERROR] Background thread: Exception in StopBox: ",
       "DISCONNECTION_FAILED"},
      {"disconnectForNodeSwitching",
       {},
       "ProxySettings.Store",
       "[ERROR] Background thread: Exception in StopBox (node switching): ",
       "DISCONNECTION_FAILED"},
  };
  for (const Case& each : cases) {
    EXPECT_EQ(Ask("loadVPNPreference", preference).value, EncodableValue(true));
    if (std::string_view(each.code) == "CONNECTION_FAILED") {
      EXPECT_EQ(Ask("stopVPN").value, EncodableValue(true));
    }
    errors.Clear();
    CountingPlan plan;
    plan.counted = [&each](const Operation& operation) {
      // No std::exception: those of its files the store tells by itself.
      return operation.name == each.thrower ? throw 7 : false;
    };
    CountingOs throwing(platform::os(), plan);
    const platform::ScopedOs in_force(throwing.os());
    EXPECT_EQ(Ask(each.method, each.arguments).code, each.code) << each.method;
    EXPECT_THAT(errors.lines(), Contains(each.told)) << each.method;
  }
}

}  // namespace
}  // namespace korvane::test
