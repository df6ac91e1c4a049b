// What the system's own client is trusted with elsewhere, and what Wine's does otherwise.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>

#include "engine_api/local_http.h"
#include "engine_api/scripted_server.h"
#include "support/scoped_environment.h"

namespace korvane::test {
namespace {

constexpr int kNeverMs = 600'000;

TEST(LocalHttpOfLinux, EndlessHeadsAreRefused) {
  struct Row {
    const char* first;
    const char* again_and_again;
  };
  const Row rows[] = {{"HTTP/1.1 200 OK\r\n", "X-Field: value\r\n"},
                      {"HTTP/1.1 200 OK\r\n", "x"},
                      {"", "HTTP/1.1 100 Continue\r\n\r\n"}};
  for (const Row& row : rows) {
    ScriptedServer server([&](net::Socket& client) {
      Say(client, row.first);
      while (client.Send(row.again_and_again, net::Deadline::Never()) == net::IoStatus::kDone) {
      }
    });
    EXPECT_EQ(LocalHttpGet(server.Url("/x"), kNeverMs), std::nullopt) << row.again_and_again;
  }
}

TEST(LocalHttpOfLinux, AnswersAreReadByTheRulesHoweverTheyArePieced) {
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const std::string chunked = ok + "transfer-encoding: Chunked\r\n\r\n";
  const std::pair<std::string, std::optional<std::string>> rows[] = {
      {chunked + "5;name=\"v\"\r\nhello\r\n0\r\nTrailer: x\r\n\r\n", "hello"},
      {chunked + "a\r\n0123456789\r\n0\r\n\r\n", "0123456789"},
      {chunked + "5\nhello\n0\n\n", "hello"},
      {chunked + "5\r\nhelloXX\r\n0\r\n\r\n", "hello"},                     // no line end
      {chunked + "5\r\nhello\r\nzz\r\nworld", "hello"},                     // no size
      {chunked + "5\r\nhello\r\nfffffffffffffffffffff\r\nworld", "hello"},  // one that can't be
      {"HTTP/1.1 100 Continue\r\nContent-Length: 3\r\n\r\n" + ok + "Content-Length: 5\r\n\r\nhello",
       "hello"},
      {"garbage\r\n\r\nbody", std::nullopt},
      {"HTTP/2 200\r\n\r\nbody", std::nullopt},
      {"HTTP/1.1 abc\r\n\r\nbody", std::nullopt},
      {"HTTP/1.1\r\n\r\nbody", std::nullopt},
      {"\r\n\r\n", std::nullopt},
  };
  for (const auto& row : rows) {
    ScriptedServer server([&said = row.first](net::Socket& client) {
      Say(client, said);
      AwaitLeave(client);
    });
    EXPECT_EQ(LocalHttpGet(server.Url("/x"), kNeverMs), row.second) << row.first;
  }
}

TEST(LocalHttpOfLinux, ResetGivesWhatCame) {
  ScriptedServer server([](net::Socket& client) {
    Say(client, "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n0123456789");
    client.Reset();
  });
  EXPECT_EQ(LocalHttpGet(server.Url("/x"), kNeverMs), "0123456789");
}

TEST(LocalHttpOfLinux, NoProxyOfTheEnvironmentDivertsARequest) {
  ScriptedServer proxy([](net::Socket& client) { Say(client, "HTTP/1.1 200 OK\r\n\r\nproxy"); });
  ScriptedServer server([](net::Socket& client) { Say(client, "HTTP/1.1 200 OK\r\n\r\nx"); });
  const ScopedEnvironment lower("http_proxy", proxy.Url(""));
  const ScopedEnvironment upper("HTTP_PROXY", proxy.Url(""));
  EXPECT_EQ(LocalHttpGet(server.Url("/x"), kNeverMs), "x");
  EXPECT_TRUE(proxy.Requests().empty());
}

TEST(LocalHttpOfLinux, TargetCannotAddALineToTheRequest) {
  ScriptedServer server([](net::Socket& client) { Say(client, "HTTP/1.1 200 OK\r\n\r\nx"); });
  EXPECT_EQ(LocalHttpGet(server.Url("/a b\r\nX: y\xc3\xa9"), 0), "x");  // 0: the system's own
  ASSERT_EQ(server.Requests().size(), 1U);
  EXPECT_TRUE(server.Requests()[0].starts_with("GET /a%20b%0D%0AX:%20y%C3%A9 HTTP/1.1\r\n"))
      << server.Requests()[0];
}

}  // namespace
}  // namespace korvane::test
