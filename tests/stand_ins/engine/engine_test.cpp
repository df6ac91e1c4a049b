// What a wrong engine would hide from the scenarios: a configuration that it took though it is
// spoilt, a port that it didn't hold, a call that came back too soon, a delay that nobody measured.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <future>
#include <string>
#include <vector>

#include "stand_ins/engine/engine_library.h"
#include "stand_ins/engine/session.h"
#include "support/temporary_folder.h"
#include "web/web_server.h"

namespace korvane::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Optional;
using ::testing::StartsWith;

bool IsFree(std::uint16_t port) {
  std::string error;
  return net::Listener::Open("127.0.0.1", port, nullptr, error).has_value();
}

class ExportsTest : public ::testing::Test {
 protected:
  EngineLibrary engine_;
  Session session_;
};

TEST_F(ExportsTest, AnUnusableConfigurationIsToldByItsPlace) {
  struct Row {
    const char* why;
    const char* text;
    const char* error;
  };
  const std::vector<Row> rows{
      {"cut JSON", "{\n \"log\": {", "decode config at row 2, column "},
      {"not an object", "[]", "decode config: expected an object, got array"},
      {"bytes that are no UTF-8", "{\"log\":\"\xff\"}", "decode config at row 1"},
      {"an unknown field", R"({"foo":1})", "decode config: unknown field \"foo\""},
      {"a port out of range", R"({"inbounds":[{"type":"mixed","listen_port":65536}]})",
       "decode config at inbounds[0].listen_port: expected 0 to 65535"},
      {"a member that isn't there",
       R"({"outbounds":[{"type":"selector","tag":"a","outbounds":["b"]}]})",
       "initialize outbound: dependency[b] not found for outbound[a]"},
      {"a misspelt wish", R"({"experimental":{"stand_in":{"new_servise":{}}}})",
       "decode config at experimental.stand_in: unknown field \"new_servise\""},
      {"a wish for nobody", R"({"experimental":{"stand_in":{"outbounds":{"x":{}}}}})",
       "decode config at experimental.stand_in.outbounds.x: no such outbound"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(engine_.new_service(row.text), 0U) << row.why;
    EXPECT_THAT(engine_.LastError(), Optional(StartsWith(row.error))) << row.why;
  }
  EXPECT_EQ(engine_.new_service(nullptr), 0U);
}

TEST_F(ExportsTest, APortThatIsTakenFailsTheStartAndLeavesNothingOpen) {
  const RunningService first(engine_, session_.configuration);
  Session second;
  second.configuration["experimental"]["clash_api"]["external_controller"] =
      "127.0.0.1:" + std::to_string(session_.clash_port);
  const std::uint64_t id = engine_.New(second.configuration);
  EXPECT_NE(engine_.start_service(id), 0);
  EXPECT_THAT(engine_.LastError(),
              Optional(StartsWith("start clash api: external controller listen tcp 127.0.0.1:")));
  EXPECT_TRUE(IsFree(second.proxy_port));
  EXPECT_EQ(engine_.close_service(id), 0);
  for (const std::uint64_t unknown : {std::uint64_t{0}, id, id + 1}) {
    EXPECT_NE(engine_.start_service(unknown), 0);
    EXPECT_NE(engine_.close_service(unknown), 0);
    EXPECT_EQ(engine_.LastError(), "service not found");
  }
}

TEST_F(ExportsTest, AFailedCallDoesNoneOfItsWork) {
  session_.wishes()["start_service"] = {{"fail", "not yet"}, {"code", -7}};
  EXPECT_EQ(engine_.start_service(engine_.New(session_.configuration)), -7);
  EXPECT_EQ(engine_.LastError(), "not yet");
  EXPECT_TRUE(IsFree(session_.proxy_port));
  session_.wishes() = {{"close_service", {{"code", 5}}}};
  EXPECT_EQ(engine_.close_service(engine_.Start(session_.configuration)), 5);
  EXPECT_FALSE(IsFree(session_.proxy_port));
}

TEST_F(ExportsTest, ACallIsHeldUntilAFileAppears) {
  const TemporaryFolder folder;
  session_.wishes()["close_service"] = {{"until_file", (folder / "go on").generic_string()}};
  const std::uint64_t id = engine_.Start(session_.configuration);
  auto closed = std::async(std::launch::async, [&] { return engine_.close_service(id); });
  EXPECT_EQ(closed.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  EXPECT_FALSE(IsFree(session_.proxy_port));
  WriteBytes(folder / "go on", "");
  EXPECT_EQ(closed.get(), 0);
  EXPECT_TRUE(IsFree(session_.proxy_port));
}

TEST_F(ExportsTest, DelaysAreThoseOfRealRequests) {
  stand_in::WebServer web(0);
  session_.wishes()["outbounds"] = {{"node_1", {{"delay_ms", 30}, {"report_delay_ms", 90}}},
                                    {"node_2", {{"delay_ms", 30}}},
                                    {"direct", {{"fail", "timeout"}}}};
  const RunningService service(engine_, session_.configuration);
  const auto delay = [&](const std::string& path, int timeout_ms) {
    return Get(session_.clash_port, path + "/delay?url=" + web.Url("/generate_204") +
                                        "&timeout=" + std::to_string(timeout_ms));
  };
  EXPECT_GE(delay("/proxies/node_2", 30000).Json()["delay"], 30);
  EXPECT_EQ(web.requests(), 1);
  EXPECT_EQ(delay("/proxies/direct", 20).status, 504);
  EXPECT_EQ(delay("/proxies/block", 30000).status, 503);
  EXPECT_EQ(web.requests(), 1);
  const nlohmann::json delays = delay("/group/auto", 30000).Json();
  EXPECT_EQ(delays.size(), 2U);
  EXPECT_EQ(delays["node_1"], 90);
  EXPECT_EQ(web.requests(), 3);
}

TEST_F(ExportsTest, RequestsThatMakeNoSenseAreRefusedAsTheEngineRefusesThem) {
  struct Row {
    const char* why;
    const char* target;
    int status;
    const char* message;
  };
  const std::vector<Row> rows{
      {"an unknown tag", "/proxies/nobody", 404, "Resource not found"},
      {"a tag that isn't encoded", "/proxies/a/b/delay?timeout=1", 404, "Resource not found"},
      {"a node is no group", "/group/node_1/delay?timeout=1", 404, "Resource not found"},
      {"no time-out", "/proxies/node_1/delay?url=http://x/", 400, "Body invalid"},
      {"a time-out beyond 16 bits", "/proxies/node_1/delay?url=http://x/&timeout=32768", 400,
       "Body invalid"},
      {"no plain http", "/proxies/node_1/delay?url=https://127.0.0.1/&timeout=1000", 503,
       "An error occurred in the delay test"},
  };
  session_.configuration["outbounds"].push_back({{"type", "direct"}, {"tag", "\xC3\xA9 #1/delay"}});
  const RunningService service(engine_, session_.configuration);
  for (const Row& row : rows) {
    const Reply reply = Get(session_.clash_port, row.target);
    EXPECT_EQ(reply.status, row.status) << row.why;
    EXPECT_EQ(reply.Json()["message"], row.message) << row.why;
  }
  EXPECT_EQ(Get(session_.clash_port, "/proxies/%C3%A9%20%231%2Fdelay").Json()["name"],
            "\xC3\xA9 #1/delay");
}

TEST_F(ExportsTest, ACrashTakesTheProcessDownAndLeavesItsReport) {
  // On Windows the case runs once more, in a process of its own, up to the crash: the file's place
  // must be the same there.
  const std::filesystem::path report = std::filesystem::path(KORVANE_TEST_FOLDER) / "crash_report";
  for (const char* kind : {"null_write", "illegal_instruction", "abort"}) {
    session_.wishes()["start_service"]["crash"] = kind;
    EXPECT_DEATH(
        {
          engine_.set_crash_output(report.generic_string().c_str());
          engine_.start_service(engine_.New(session_.configuration));
        },
        "");
    EXPECT_THAT(ReadBytes(report), Optional(HasSubstr("engine stand-in\nfatal error: "))) << kind;
    std::filesystem::remove(report);
  }
}

}  // namespace
}  // namespace korvane::test
