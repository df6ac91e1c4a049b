// Answers of the Clash API that were asked to be wrong, as they come over the wire.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "stand_ins/engine/engine_library.h"
#include "stand_ins/engine/session.h"
#include "support/temporary_folder.h"

namespace korvane::test {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class ClashScriptTest : public ::testing::Test {
 protected:
  void Start(const json& answers) {
    session_.wishes()["clash_answers"] = answers;
    service_.emplace(engine_, session_.configuration);
  }

  // Every byte that comes for a request, up to the end of the connection.
  std::string Raw(const std::string& target) {
    net::Socket socket = Connect(session_.clash_port);
    SendAll(socket, "GET " + target + " HTTP/1.1\r\n\r\n");
    return ReadToEnd(socket);
  }

  EngineLibrary engine_;
  Session session_;
  std::optional<RunningService> service_;
};

TEST_F(ClashScriptTest, EachKindSendsWhatItsNameSays) {
  const std::string body = R"({"now":"node_1"})";
  struct Row {
    const char* kind;
    const char* beginning;
    std::string ending;
  };
  const std::array rows{
      Row{"answer", "HTTP/1.1 200 OK\r\n", "Content-Length: 16\r\n\r\n" + body},
      Row{"chunked", "HTTP/1.1 200 OK\r\n",
          "Transfer-Encoding: chunked\r\n\r\n10\r\n" + body + "\r\n0\r\n\r\n"},
      Row{"until_close", "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n\r\n", body},
      Row{"cut", "HTTP/1.1 200 OK\r\n", "Content-Length: 16\r\n\r\n" + body.substr(0, 8)},
      Row{"reset", "HTTP/1.1 200 OK\r\n", "Content-Length: 16\r\n\r\n" + body.substr(0, 8)},
      Row{"cut_chunked", "HTTP/1.1 200 OK\r\n", "chunked\r\n\r\n11\r\n" + body},
      Row{"drip", "HTTP/1.1 200 OK\r\n", "Content-Length: 16\r\n\r\n" + body},
      Row{"garbage", "\x01\x02 this is no answer", body},
      Row{"close", "", ""},
  };
  json answers = json::array();
  for (const Row& row : rows) {
    answers.push_back({{"path", std::string("/") + row.kind},
                       {"kind", row.kind},
                       {"body", body},
                       {"interval_ms", 0}});
  }
  Start(answers);
  for (const Row& row : rows) {
    const std::string bytes = Raw(std::string("/") + row.kind + "?query=1");
    EXPECT_THAT(bytes, StartsWith(row.beginning)) << row.kind;
    EXPECT_TRUE(bytes.ends_with(row.ending)) << row.kind << ": " << bytes;
  }
  EXPECT_EQ(Get(session_.clash_port, "/version").status, 200);
}

TEST_F(ClashScriptTest, StatusAndHeadersAreFree) {
  Start({{{"status", 302}, {"headers", {{"Location", "http://203.0.113.7/"}}}}});
  const std::string bytes = Raw("/version");
  EXPECT_THAT(bytes, StartsWith("HTTP/1.1 302 Found\r\n"));
  EXPECT_THAT(bytes, HasSubstr("Location: http://203.0.113.7/\r\n"));
}

TEST_F(ClashScriptTest, BodiesCanBeHugeAndStillBeJson) {
  constexpr std::size_t kPad = std::size_t{100} * 1024 * 1024;
  Start({{{"path", "/proxies/proxy"}, {"pad_bytes", kPad}, {"body", R"({"now":"x"})"}},
         {{"path", "/group/auto/delay"},
          {"kind", "chunked"},
          {"pad_bytes", 8 * 1024 * 1024},
          {"body", "{}"}}});
  const Reply huge = Get(session_.clash_port, "/proxies/proxy");
  EXPECT_EQ(huge.body.size(), kPad + 11);
  EXPECT_TRUE(huge.body.ends_with(R"( {"now":"x"})"));
  EXPECT_EQ(Get(session_.clash_port, "/group/auto/delay").body.size(), 8U * 1024 * 1024 + 2);
}

TEST_F(ClashScriptTest, AScriptThatIsUsedUpGivesWayToTheNextAndThenToTheTruth) {
  Start({{{"path", "/proxies/proxy"}, {"times", 1}, {"body", R"({"now":"first"})"}},
         {{"path", "/proxies/proxy"}, {"times", 1}, {"body", R"({"now":"second"})"}}});
  for (const char* now : {"first", "second", "auto", "auto"}) {
    EXPECT_EQ(Get(session_.clash_port, "/proxies/proxy").Json()["now"], now);
  }
}

TEST_F(ClashScriptTest, TheTrueAnswerCanBeHeldUntilAFileAppears) {
  const TemporaryFolder folder;
  const auto utf8 = [&](const char* name) { return (folder / name).generic_string(); };
  Start({{{"kind", "engine"},
          {"path", "/version"},
          {"touch", utf8("reached")},
          {"until_file", utf8("go")}}});
  net::Socket socket = Connect(session_.clash_port);
  SendAll(socket, "GET /version HTTP/1.1\r\nConnection: close\r\n\r\n");
  const net::Deadline end = Patience();
  while (!std::filesystem::exists(folder / "reached")) {
    ASSERT_FALSE(end.passed());
  }
  EXPECT_EQ(Get(session_.clash_port, "/proxies/auto").status, 200) << "others are served meanwhile";
  WriteBytes(folder / "go", "");
  EXPECT_THAT(ReadToEnd(socket), HasSubstr("sing-box"));
}

TEST_F(ClashScriptTest, SilenceEndsWhenItsTimeIsOver) {
  Start({{{"kind", "nothing"}, {"close_after_ms", 20}}});
  EXPECT_EQ(Raw("/version"), "");
}

TEST_F(ClashScriptTest, HeadersWithoutAnEndKeepComing) {
  Start({{{"kind", "endless_headers"}, {"interval_ms", 0}}});
  net::Socket socket = Connect(session_.clash_port);
  SendAll(socket, "GET /version HTTP/1.1\r\n\r\n");
  constexpr std::size_t kMany = 300000;
  EXPECT_EQ(ReadUpTo(socket, kMany).find("\r\n\r\n"), std::string::npos);
}

}  // namespace
}  // namespace korvane::test
