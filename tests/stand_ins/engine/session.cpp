#include "stand_ins/engine/session.h"

#include <gtest/gtest.h>

#include "net/http_get.h"

namespace korvane::test {
namespace {

constexpr std::size_t kMostBody = std::size_t{1} << 20;

nlohmann::json Node(const std::string& tag) {
  return {{"type", "vless"}, {"tag", tag}, {"server", "127.0.0.1"}, {"server_port", 443}};
}

std::uint16_t FreePort() {
  std::string error;
  const auto listener = net::Listener::Open("127.0.0.1", 0, nullptr, error);
  EXPECT_TRUE(listener) << error;
  return listener ? listener->port() : std::uint16_t{0};
}

// Long enough for anything that is to happen; a test that waits so long has failed.
net::Deadline Patience() { return net::Deadline::In(std::chrono::seconds(60)); }

}  // namespace

Session::Session() : proxy_port(FreePort()), clash_port(FreePort()) {
  configuration = {
      {"inbounds",
       {{{"type", "mixed"},
         {"tag", "mixed-in"},
         {"listen", "127.0.0.1"},
         {"listen_port", proxy_port}}}},
      {"outbounds",
       {{{"type", "selector"},
         {"tag", "proxy"},
         {"outbounds", {"auto", "node_1", "node_2", "direct", "block"}}},
        {{"type", "urltest"}, {"tag", "auto"}, {"outbounds", {"node_1", "node_2"}}},
        Node("node_1"),
        Node("node_2"),
        {{"type", "direct"}, {"tag", "direct"}},
        {{"type", "block"}, {"tag", "block"}}}},
      {"route", {{"final", "proxy"}}},
      {"experimental",
       {{"clash_api", {{"external_controller", "127.0.0.1:" + std::to_string(clash_port)}}},
        {"stand_in", nlohmann::json::object()}}}};
}

Reply Get(std::uint16_t port, const std::string& target) {
  net::Dialled dialled = net::Dial("127.0.0.1", port, nullptr, Patience());
  EXPECT_EQ(dialled.status, net::DialStatus::kDone) << dialled.error;
  const std::string request = "GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
  EXPECT_EQ(dialled.socket.Send(request, Patience()), net::IoStatus::kDone);
  net::HttpReader reader(dialled.socket);
  net::HttpHead head;
  Reply reply;
  if (reader.ReadHead(head, Patience()) == net::IoStatus::kDone) {
    reply.status = head.Status();
    EXPECT_NE(reader.ReadAnswerBody(head, reply.body, kMostBody, Patience()),
              net::IoStatus::kTimedOut);
  }
  return reply;
}

}  // namespace korvane::test
