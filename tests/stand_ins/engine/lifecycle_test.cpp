// Services come and go: what they opened is closed, their threads are gone, their ports are free.
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "net/tcp_server.h"
#include "stand_ins/engine/engine_library.h"
#include "stand_ins/engine/process_load.h"
#include "stand_ins/engine/session.h"
#include "web/web_server.h"

namespace korvane::test {
namespace {

using nlohmann::json;
using stand_in::WebServer;

// Ends whatever the service has to do with a connection; the test hangs where a close would.
struct Situation {
  const char* name;
  std::string first_bytes;
  bool to_clash;
};

class LifecycleTest : public ::testing::Test {
 protected:
  EngineLibrary engine_;
  WebServer web_{0};
  Session session_;
};

TEST_F(LifecycleTest, ACloseEndsEveryKindOfConnectionAndFreesThePorts) {
  const std::string host = "127.0.0.1:" + std::to_string(web_.port());
  const std::array situations{
      Situation{"not a byte yet", "", false},
      Situation{"a half-sent head", "GET http://", false},
      Situation{"an open tunnel", "CONNECT " + host + " HTTP/1.1\r\n\r\n", false},
      Situation{"a half-sent greeting", "\x05", false},
      Situation{"a dial that never ends", "GET http://" + host + "/ HTTP/1.1\r\n\r\n", false},
      Situation{"a control connection that waits", "", true},
      Situation{
          "a running delay test",
          "GET " + DelayTarget("proxies", "node_1", web_.Url("/"), 30000) + " HTTP/1.1\r\n\r\n",
          true},
      Situation{"a running group test",
                "GET " + DelayTarget("group", "auto", web_.Url("/"), 30000) + " HTTP/1.1\r\n\r\n",
                true},
      Situation{"a silent answer", "GET /silent HTTP/1.1\r\n\r\n", true},
      Situation{"a dripping answer", "GET /drip HTTP/1.1\r\n\r\n", true},
      Situation{"an endless head", "GET /endless HTTP/1.1\r\n\r\n", true},
      Situation{"a body that nobody reads", "GET /unread HTTP/1.1\r\n\r\n", true},
  };
  session_.wishes()["outbounds"]["node_1"]["fail"] = "timeout";
  session_.wishes()["clash_answers"] = {
      {{"path", "/silent"}, {"kind", "nothing"}},
      {{"path", "/drip"}, {"kind", "drip"}, {"interval_ms", 60000}},
      {{"path", "/endless"}, {"kind", "endless_headers"}, {"interval_ms", 60000}},
      {{"path", "/unread"}, {"pad_bytes", 64 * 1024 * 1024}}};
  for (const Situation& situation : situations) {
    SCOPED_TRACE(situation.name);
    session_.BeginWith(situation.name == std::string("a dial that never ends") ? "node_1"
                                                                               : "direct");
    RunningService service(engine_, session_.configuration);
    const std::uint16_t port = situation.to_clash ? session_.clash_port : session_.proxy_port;
    net::Socket socket = Connect(port);
    SendAll(socket, situation.first_bytes);
    // A second connection that is served tells that the first was taken before.
    EXPECT_EQ(Get(session_.clash_port, "/version").status, 200);
    service.Close();
    std::string rest;
    while (socket.Receive(rest, 1 << 20, Patience()) == net::IoStatus::kDone) {
      rest.clear();
    }
  }
  const RunningService again(engine_, session_.configuration);
}

TEST_F(LifecycleTest, AThousandServicesLeaveNothingBehind) {
  session_.BeginWith("direct");
  const auto cycle = [&](bool with_traffic) {
    RunningService service(engine_, session_.configuration);
    if (with_traffic) {
      EXPECT_EQ(FetchThrough(session_.proxy_port, web_.Url("/generate_204")), 204);
      EXPECT_EQ(Get(session_.clash_port, "/version").status, 200);
    }
    service.Close();
  };
  cycle(true);
  const std::size_t handles = OpenHandles();
  const std::size_t threads = RunningThreads();
  for (int i = 0; i < 1000; ++i) {
    cycle(i % 20 == 0);
  }
  // The web server's own connections end a moment later than the service's.
  constexpr std::size_t kSlack = 20;
  EXPECT_LE(OpenHandles(), handles + kSlack);
  EXPECT_LE(RunningThreads(), threads + kSlack);
}

TEST_F(LifecycleTest, SeveralServicesRunSideBySide) {
  std::vector<Session> sessions(5);
  std::vector<std::unique_ptr<RunningService>> services;
  std::set<std::uint64_t> ids;
  for (Session& session : sessions) {
    services.push_back(std::make_unique<RunningService>(engine_, session.configuration));
    ids.insert(services.back()->id());
  }
  EXPECT_EQ(ids.size(), sessions.size());
  services[2]->Close();
  for (std::size_t i = 0; i < sessions.size(); ++i) {
    EXPECT_EQ(FetchThrough(sessions[i].proxy_port, web_.Url("/")), i == 2 ? 0 : 200);
  }
}

TEST_F(LifecycleTest, CallsFromManyThreadsAtOnceAreEachAnswered) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 25; ++n) {
        // Without a port each gets one of its own.
        const std::uint64_t id = engine_.Start({{"inbounds", {{{"type", "mixed"}}}}});
        engine_.new_service("broken");
        EXPECT_TRUE(engine_.LastError());
        EXPECT_EQ(engine_.close_service(id), 0);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST_F(LifecycleTest, AHeldConnectionHasSentAByteAndLastsAsLongAsTheService) {
  net::StopSignal stop;
  std::string error;
  auto listener = net::Listener::Open("127.0.0.1", 0, &stop, error);
  ASSERT_TRUE(listener) << error;
  session_.wishes()["hold"] = {"127.0.0.1:" + std::to_string(listener->port())};
  RunningService service(engine_, session_.configuration);
  std::optional<net::Socket> held = listener->Accept();
  ASSERT_TRUE(held);
  EXPECT_EQ(ReadUpTo(*held, 1).size(), 1U);
  std::string more;
  EXPECT_EQ(held->ReceiveSome(more, 1), net::IoStatus::kWouldBlock);
  service.Close();
  EXPECT_EQ(ReadToEnd(*held), "");
}

TEST_F(LifecycleTest, APeerThatCannotBeHeldFailsTheStart) {
  session_.wishes()["hold"] = {"127.0.0.1:" + std::to_string(FreePort())};
  const std::uint64_t id = engine_.New(session_.configuration);
  EXPECT_NE(engine_.start_service(id), 0);
  EXPECT_TRUE(engine_.LastError()->starts_with("hold 127.0.0.1:"));
  EXPECT_EQ(engine_.close_service(id), 0);
}

}  // namespace
}  // namespace korvane::test
