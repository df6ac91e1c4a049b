// A process that took the control port before the engine did, and means no good.
#include <gtest/gtest.h>

#include <string>

#include "engine_api/clash_api.h"
#include "engine_api/local_http.h"
#include "engine_api/scripted_server.h"
#include "support/small_stack.h"

namespace korvane::test {
namespace {

// No limit is set for a body; what is set is that reading it and asking it cost no more than its
// size.
TEST(HostileListener, AHundredMegabytesAreReadAndAskedOnASmallStack) {
  constexpr std::size_t kBytes = 100'000'000;
  std::string block;  // looks like a match that never ends, again and again
  while (block.size() < 1'000'000) {
    block += R"("now" : "node_1": -")";
  }
  ScriptedServer server([&block](net::Socket& client) {
    Say(client, "HTTP/1.1 200 OK\r\n\r\n");
    for (std::size_t sent = 0; sent < kBytes; sent += block.size()) {
      Say(client, block);
    }
  });
  RunOnSmallStack([&] {
    const auto body = LocalHttpGet(server.Url("/proxies/proxy"), 1'000'000);
    ASSERT_TRUE(body);
    EXPECT_GE(body->size(), kBytes);
    EXPECT_EQ(JsonExtractString(*body, "now"), "node_1");
    EXPECT_EQ(JsonExtractInt(*body, "delay"), std::nullopt);
    EXPECT_EQ(PickLowestLatency(*body).tag, "");
    EXPECT_EQ(PickLowestNodeLatency(*body).tag, "");
  });
}

}  // namespace
}  // namespace korvane::test
