// What the system's own client is trusted with elsewhere, and what Wine's does otherwise.
#include <gtest/gtest.h>

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

TEST(LocalHttpOfLinux, BytesThatAreNoAnswerAreNothing) {
  for (const char* said : {"garbage\r\n\r\nbody", "SSH-2.0-x\r\n", "HTTP/2 200\r\n\r\nbody",
                           "HTTP/1.1 abc\r\n\r\nbody", "HTTP/1.1\r\n\r\nbody", "\r\n\r\n"}) {
    ScriptedServer server([&](net::Socket& client) {
      Say(client, said);
      AwaitLeave(client);
    });
    EXPECT_EQ(LocalHttpGet(server.Url("/x"), kNeverMs), std::nullopt) << said;
  }
}

TEST(LocalHttpOfLinux, ChunksAreReadByTheirRulesHoweverTheyArePieced) {
  struct Row {
    const char* chunks;
    const char* body;
  };
  const Row rows[] = {
      {"5;name=\"v\"\r\nhello\r\n0\r\nTrailer: x\r\n\r\n", "hello"},
      {"a\r\n0123456789\r\n0\r\n\r\n", "0123456789"},
      {"5\nhello\n0\n\n", "hello"},
      {"5\r\nhelloXX\r\n0\r\n\r\n", "hello"},                    // no line end behind a chunk
      {"5\r\nhello\r\nzz\r\nworld", "hello"},                    // no size
      {"5\r\nhello\r\nfffffffffffffffffffff\r\nworld", "hello"}  // a size that can't be
  };
  for (const Row& row : rows) {
    ScriptedServer server([&](net::Socket& client) {
      Say(client,
          std::string("HTTP/1.1 200 OK\r\ntransfer-encoding: Chunked\r\n\r\n") + row.chunks);
      AwaitLeave(client);
    });
    EXPECT_EQ(LocalHttpGet(server.Url("/x"), kNeverMs), row.body) << row.chunks;
  }
}

TEST(LocalHttpOfLinux, InterimAnswersArePassedOver) {
  ScriptedServer server([](net::Socket& client) {
    Say(client,
        "HTTP/1.1 100 Continue\r\nContent-Length: 3\r\n\r\n"
        "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello");
    AwaitLeave(client);
  });
  EXPECT_EQ(LocalHttpGet(server.Url("/x"), kNeverMs), "hello");
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

TEST(LocalHttpOfLinux, NoTimeoutMeansTheSystemsOwnAndNotForever) {
  ScriptedServer server([](net::Socket& client) { Say(client, "HTTP/1.1 200 OK\r\n\r\nx"); });
  EXPECT_EQ(LocalHttpGet(server.Url("/x"), 0), "x");
  EXPECT_EQ(LocalHttpGet(server.Url("/x"), -5), "x");
}

TEST(LocalHttpOfLinux, TargetCannotAddALineToTheRequest) {
  ScriptedServer server([](net::Socket& client) { Say(client, "HTTP/1.1 200 OK\r\n\r\nx"); });
  EXPECT_EQ(LocalHttpGet(server.Url("/a b\r\nX: y\xc3\xa9"), kNeverMs), "x");
  ASSERT_EQ(server.Requests().size(), 1U);
  EXPECT_TRUE(server.Requests()[0].starts_with("GET /a%20b%0D%0AX:%20y%C3%A9 HTTP/1.1\r\n"))
      << server.Requests()[0];
}

}  // namespace
}  // namespace korvane::test
