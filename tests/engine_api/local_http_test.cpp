// The loopback client against a server that says what a row tells it, on real sockets.
#include "engine_api/local_http.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "engine_api/scripted_server.h"
#include "platform/os.h"
#include "support/counting_os.h"

namespace korvane::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

// Far beyond what a test case may take: a client that waits for it is a fault.
constexpr int kNeverMs = 600'000;
constexpr int kShortMs = 300;

const std::optional<std::string> kNothing;

TEST(ParseLoopbackUrl, TakesThePortAndThePathAndNothingElse) {
  struct Row {
    const char* url;
    int port;  // 0 for a refusal
    const wchar_t* path;
  };
  const Row rows[] = {
      {"http://127.0.0.1:9090/version", 9090, L"/version"},
      {"http://example.com:80/a/b?c=http://d:1/e&f=", 80, L"/a/b?c=http://d:1/e&f="},
      {"http://:1/", 1, L"/"},
      {"http://a:b:65535/x", 65535, L"/x"},
      {"http://h: +9090abc", 9090, L"/"},
      {"http://h:1/\xc3\xa9", 1, L"/\u00c3\u00a9"},
      {"http://127.0.0.1/version", 0, L""},
      {"http://127.0.0.1:/version", 0, L""},
      {"http://127.0.0.1:65536/x", 0, L""},
      {"http://127.0.0.1:-1/x", 0, L""},
      {"https://127.0.0.1:9090/x", 0, L""},
      {"http:/127.0.0.1:9090/x", 0, L""},
      {"", 0, L""},
  };
  for (const Row& row : rows) {
    const auto parsed = ParseLoopbackUrl(row.url);
    EXPECT_EQ(parsed.has_value(), row.port != 0) << row.url;
    if (parsed) {
      EXPECT_EQ(parsed->port, row.port) << row.url;
      EXPECT_EQ(parsed->path, row.path) << row.url;
    }
  }
}

TEST(ParseLoopbackUrl, ThrowsForAPortThatIsNoInt) {
  EXPECT_THROW(ParseLoopbackUrl("http://h:abc/"), std::invalid_argument);
  EXPECT_THROW(ParseLoopbackUrl("http://h:99999999999/"), std::out_of_range);
}

std::string Chunk(const std::string& bytes) {
  char size[32];
  std::snprintf(size, sizeof(size), "%zX", bytes.size());
  return std::string(size) + "\r\n" + bytes + "\r\n";
}

struct Row {
  const char* sentence;
  std::string said;
  bool stays;  // the server leaves no sooner than the client
  std::optional<std::string> body;
};

std::vector<Row> Rows() {
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const std::string chunked = ok + "Transfer-Encoding: chunked\r\n\r\n";
  return {
      {"a length ends the wait, though the connection stays", ok + "Content-Length: 5\r\n\r\nhello",
       true, "hello"},
      {"names of fields are in any case", ok + "cOnTent-lenGTH:5\r\n\r\nhello", true, "hello"},
      {"chunks are put together, and the last one ends the wait",
       chunked + Chunk("hel") + Chunk("lo") + Chunk(std::string(300, 'x')) + "0\r\n\r\n", true,
       "hello" + std::string(300, 'x')},
      {"without a length the body ends with the connection", ok + "\r\nhello", false, "hello"},
      {"a zero byte is like any other", ok + "Content-Length: 3\r\n\r\n" + std::string("a\0b", 3),
       true, std::string("a\0b", 3)},
      {"an empty body is nothing", ok + "Content-Length: 0\r\n\r\n", true, kNothing},
      {"another success is nothing", "HTTP/1.1 206 Partial Content\r\nContent-Length: 2\r\n\r\nhi",
       true, kNothing},
      {"a failed probe is nothing",
       "HTTP/1.1 503 Service Unavailable\r\nContent-Length: 2\r\n\r\nhi", true, kNothing},
      {"a body that is cut is given as far as it came",
       ok + "Content-Length: 100\r\n\r\n0123456789", false, "0123456789"},
      {"so is a chunk", chunked + Chunk("hello") + "A\r\n wor", false, "hello wor"},
      {"a head that is cut is nothing", ok + "Content-Le", false, kNothing},
      {"an end without an answer is nothing", "", false, kNothing},
  };
}

TEST(LocalHttp, GivesTheBodyOfAnOkAnswerAndNothingElse) {
  for (const Row& row : Rows()) {
    ScriptedServer server([&](net::Socket& client) {
      Say(client, row.said);
      if (row.stays) {
        AwaitLeave(client);
      }
    });
    EXPECT_EQ(LocalHttpGet(server.Url("/x"), kNeverMs), row.body) << row.sentence;
    EXPECT_EQ(server.Requests().size(), 1U) << row.sentence;
  }
}

TEST(LocalHttp, AsksTheLoopbackAddressWhateverHostTheUrlNames) {
  ScriptedServer server([](net::Socket& client) { Say(client, "HTTP/1.1 200 OK\r\n\r\nx"); });
  const std::string port = std::to_string(server.port());
  const std::string target = "/group/%E6%97%A5/delay?url=http://a.b/c&timeout=5";
  EXPECT_EQ(LocalHttpGet("http://192.0.2.1:" + port + target, kNeverMs), "x");
  ASSERT_EQ(server.Requests().size(), 1U);
  EXPECT_THAT(server.Requests()[0], AllOf(StartsWith("GET " + target + " HTTP/1.1\r\n"),
                                          HasSubstr("\r\nUser-Agent: Dramvex/1.0\r\n"),
                                          HasSubstr("\r\nHost: 127.0.0.1:" + port + "\r\n")));
}

TEST(LocalHttp, FollowsNoRedirect) {
  ScriptedServer other([](net::Socket& client) { Say(client, "HTTP/1.1 200 OK\r\n\r\nx"); });
  for (const char* status : {"301", "302", "307"}) {
    ScriptedServer server([&](net::Socket& client) {
      Say(client, std::string("HTTP/1.1 ") + status + " Moved\r\nLocation: " + other.Url("/y") +
                      "\r\nContent-Length: 2\r\n\r\nhi");
      AwaitLeave(client);
    });
    EXPECT_EQ(LocalHttpGet(server.Url("/x"), kNeverMs), kNothing) << status;
  }
  EXPECT_TRUE(other.Requests().empty());
}

TEST(LocalHttp, NobodyListensOrNobodyAnswersIsNothing) {
  std::string url;
  {
    const ScriptedServer silent([](net::Socket& client) { AwaitLeave(client); });
    url = silent.Url("/x");
    EXPECT_EQ(LocalHttpGet(url, kShortMs), kNothing);
  }
  EXPECT_EQ(LocalHttpGet(url, kNeverMs), kNothing);
}

TEST(LocalHttp, GivesWhatCameBeforeABodyStalled) {
  for (const char* fields :
       {"Content-Length: 10\r\n\r\n", "Transfer-Encoding: chunked\r\n\r\nA\r\n", "\r\n"}) {
    ScriptedServer server([&](net::Socket& client) {
      Say(client, std::string("HTTP/1.1 200 OK\r\n") + fields + "hello");
      AwaitLeave(client);
    });
    EXPECT_EQ(LocalHttpGet(server.Url("/x"), kShortMs), "hello") << fields;
  }
}

// The time-out is that of each wait: a body that keeps coming may take longer than it in all.
TEST(LocalHttp, TakesABodyThatDripsForLongerThanTheTimeout) {
  const std::string body(80, 'x');
  constexpr int kTimeoutMs = 1500;
  const net::StopSignal never;
  ScriptedServer server([&](net::Socket& client) {
    Say(client, "HTTP/1.1 200 OK\r\nContent-Length: 80\r\n\r\n");
    for (const char byte : body) {
      never.RaisedWithin(std::chrono::milliseconds(20));
      Say(client, std::string(1, byte));
    }
  });
  EXPECT_EQ(LocalHttpGet(server.Url("/x"), kTimeoutMs), body);
}

TEST(LocalHttp, TakesLargeBodiesWhole) {
  std::string body;
  while (body.size() < std::size_t{8} << 20) {
    body += "line " + std::to_string(body.size()) + "\n";
  }
  const std::string chunks = Chunk(body.substr(0, 5'000'000)) + Chunk(body.substr(5'000'000));
  const std::pair<std::string, std::string> rows[] = {
      {"Content-Length: " + std::to_string(body.size()), body},
      {"Transfer-Encoding: chunked", chunks + "0\r\n\r\n"},
      {"Connection: close", body}};
  for (const auto& [field, sent] : rows) {
    const std::string head = "HTTP/1.1 200 OK\r\n" + field + "\r\n\r\n";
    ScriptedServer server([&head, &bytes = sent](net::Socket& client) {
      Say(client, head);
      Say(client, bytes);
    });
    const auto got = LocalHttpGet(server.Url("/x"), kNeverMs);
    EXPECT_TRUE(got == body) << field << ": " << (got ? got->size() : 0) << " bytes";
  }
}

TEST(LocalHttp, ASystemThatRefusesIsNothing) {
  ScriptedServer server([](net::Socket& client) { Say(client, "HTTP/1.1 200 OK\r\n\r\nx"); });
  for (const std::size_t step : {1U, 2U}) {
    const CountingOs failing(platform::RealOs(), FailOnce(step));
    const platform::ScopedOs in_force(failing.os());
    EXPECT_EQ(LocalHttpGet(server.Url("/x"), kNeverMs), kNothing);
  }
  EXPECT_TRUE(server.Requests().empty());
}

// The session is there before the URL is looked at, and goes with it.
TEST(LocalHttp, OpensASessionForABadUrlToo) {
  for (const char* url : {"http://h/x", "http://h:abc/", "http://h:99999999999/"}) {
    const CountingOs counting(platform::RealOs());
    const platform::ScopedOs in_force(counting.os());
    EXPECT_EQ(LocalHttpGet(url, kNeverMs), kNothing);
    EXPECT_THAT(counting.trace(), testing::ElementsAre("LoopbackHttp.Open"));
  }
}

}  // namespace
}  // namespace korvane::test
