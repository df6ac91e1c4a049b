#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/fake_window_system.h"
#include "vpn/tunnel_fixture.h"
#include "vpn/vpn_event_stream.h"
#include "vpn/vpn_state.h"

namespace korvane::test {
namespace {

using flutter::EncodableValue;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kEvents[] = "com.sundrelak.korvane/vpn_events";

class EventStreamTest : public TunnelTest {
 protected:
  EventStreamTest() : windows_(window_calls_) {
    platform::Os os = platform::os();
    os.windows = &windows_;
    with_windows_.emplace(os);
    SetEventWindow(windows_.AddNamed("host"));
  }

  Answer Stream(const char* method) { return dart.Await(dart.Deliver(kEvents, method, {})); }

  CallJournal window_calls_;
  FakeWindowSystem windows_;

 private:
  std::optional<platform::ScopedOs> with_windows_;
};

TEST_F(EventStreamTest, ErrorsGoAheadOfWordsWhateverTheOrderOfThePosts) {
  Register();
  PostVpnState("vpn_connecting");
  PostVpnState("vpn_disconnected");
  PostNativeError("CONNECTION_FAILED", "first");
  PostNativeError("CONNECTION_FAILED", "caf\xE9");
  EXPECT_THAT(dart.Heard(), IsEmpty()) << "nothing before the window thread is woken";
  DrainVpnEvents();
  EXPECT_THAT(
      dart.Heard(),
      ElementsAre("onVPNError CONNECTION_FAILED: first", "onVPNError CONNECTION_FAILED: caf\u00E9",
                  "onVPNStateChanged vpn_connecting", "onVPNStateChanged vpn_disconnected"));
  DrainVpnEvents();
  EXPECT_THAT(dart.Heard(), IsEmpty()) << "a wake-up may find nothing";
  EXPECT_EQ(window_calls_.Take().size(), 4U) << "one wake-up for each post";
}

TEST_F(EventStreamTest, RefusedWakeUpIsNobodysBusiness) {
  Register();
  windows_.Fail("Post");
  errors.Clear();
  PostVpnState("vpn_connecting");
  EXPECT_THAT(errors.lines(), IsEmpty());
  DrainVpnEvents();
  EXPECT_THAT(dart.Heard(), ElementsAre("onVPNStateChanged vpn_connecting"));
}

TEST_F(EventStreamTest, WithoutAWindowEachWordGoesOutAtOnceWithAWarning) {
  SetEventWindow(nullptr);
  Register();
  errors.Clear();
  PostVpnState("vpn_connecting");
  PostVpnState("vpn_connected");
  EXPECT_THAT(dart.Heard(),
              ElementsAre("onVPNStateChanged vpn_connecting", "onVPNStateChanged vpn_connected"));
  const std::string warning = "[VPNManager] Warning: No window handle, attempting direct dispatch";
  EXPECT_THAT(errors.lines(), ElementsAre(warning, warning));
}

TEST_F(EventStreamTest, ListenerHearsTheStateOfNowAndNotTheHistory) {
  Register();
  PostVpnState("vpn_connecting");
  DrainVpnEvents();
  dart.Heard();
  EXPECT_EQ(Stream("listen").kind, "success");
  DrainVpnEvents();
  EXPECT_THAT(dart.Heard(),
              ElementsAre("event vpn_disconnected", "onVPNStateChanged vpn_disconnected"));
  EXPECT_EQ(Stream("cancel").kind, "success");
  PostVpnState("vpn_connected");
  DrainVpnEvents();
  EXPECT_THAT(dart.Heard(), ElementsAre("onVPNStateChanged vpn_connected"));
  const Answer again = Stream("cancel");
  EXPECT_EQ(again.code + ": " + again.message, "error: No active stream to cancel");
}

TEST_F(EventStreamTest, SecondListenReplacesTheSinkAndEachIsToldTheWordInProgress) {
  Register();
  Stream("listen");
  vpn_state().op_depth = 1;
  vpn_state().op_phase = kPhaseStarting;
  Stream("listen");
  DrainVpnEvents();
  EXPECT_THAT(dart.Heard(),
              ElementsAre("event vpn_disconnected", "onVPNStateChanged vpn_disconnected",
                          "event vpn_connecting", "onVPNStateChanged vpn_connecting"));
}

TEST_F(EventStreamTest, WithoutAMethodChannelErrorsAreDropped) {
  OpenVpnEventChannel(&dart);
  Stream("listen");
  PostNativeError("CODE", "message");
  DrainVpnEvents();
  EXPECT_THAT(dart.Heard(), ElementsAre("event vpn_disconnected"));
}

}  // namespace
}  // namespace korvane::test
