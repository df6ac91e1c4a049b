// Messages that cross the whole boundary as bytes, bad ones and large ones.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/host_driver/host_process.h"

namespace korvane::test {
namespace {

using testing::Contains;

class Channel : public testing::Test {
 protected:
  HostUser user_;
  HostProcess host_{user_};
};

TEST_F(Channel, TellsANewListenerTheStateThatIsTrueNow) {
  host_.SendText(R"({"listen":"vpn_events"})");
  EXPECT_EQ(host_.Reply("listen")["success"], nullptr);
  host_.Await({{"event", {{"status", "vpn_disconnected"}}}});
  host_.Await({{"method", "onVPNStateChanged"}, {"args", "vpn_disconnected"}});
  host_.SendText(R"({"cancel":"vpn_events"})");
  EXPECT_EQ(host_.Reply("cancel")["success"], nullptr);
}

TEST_F(Channel, SurvivesMessagesThatAreNoCalls) {
  const char* messages[] = {"07 09 69 73",                           // cut in its name
                            "03 05 00 00 00 00",                     // a name that is a number
                            "",                                      // nothing
                            "0c ff ff ff ff ff",                     // a size that lies
                            "07 09 69 73 52 75 6e 6e 69 6e 67 0d"};  // cut behind its name
  int id = 0;
  for (const auto* channel : {"vpn", "core", "vpn_events"}) {
    for (const auto* message : messages) {
      host_.Send({{"raw", message}, {"channel", channel}, {"id", ++id}});
      EXPECT_EQ(host_.Reply(id)["not_implemented"], true) << channel << ": " << message;
    }
    EXPECT_EQ(host_.Call("noSuchMethod", {{"a", {1, 2}}}, channel)["not_implemented"], true);
  }
  const auto reply = host_.Call("loadVPNPreference", {{"config", std::string(10'000'000, 'x')}});
  EXPECT_EQ(reply["error"]["code"], "INVALID_CONFIG");
  const auto running = host_.Call("isRunning");
  EXPECT_EQ(running["success"], false);
  EXPECT_EQ(running["thread"], "window");
  EXPECT_EQ(host_.Finish(), 0);
  EXPECT_THAT(host_.error_lines(),
              Contains("Unable to construct method call from message on channel "
                       "com.sundrelak.korvane/vpn"));
}

}  // namespace
}  // namespace korvane::test
