// The seven functions: what they give, how they fail, and what they can be told to do.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "stand_ins/engine/engine_library.h"
#include "stand_ins/engine/session.h"
#include "support/temporary_folder.h"

namespace korvane::test {
namespace {

using nlohmann::json;
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

// A configuration that the real engine refuses must not pass here.
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
      {"an unknown inbound", R"({"inbounds":[{"type":"carrier-pigeon"}]})",
       "decode config at inbounds[0]: unknown inbound type: carrier-pigeon"},
      {"a port out of range", R"({"inbounds":[{"type":"mixed","listen_port":65536}]})",
       "decode config at inbounds[0].listen_port: expected 0 to 65535"},
      {"an address of other machines", R"({"inbounds":[{"type":"mixed","listen":"8.8.8.8"}]})",
       "decode config at inbounds[0]: listen address 8.8.8.8"},
      {"an outbound without a type", R"({"outbounds":[{"tag":"a"}]})",
       "decode config at outbounds[0]: missing outbound type"},
      {"a member that isn't there",
       R"({"outbounds":[{"type":"selector","tag":"a","outbounds":["b"]}]})",
       "initialize outbound: dependency[b] not found for outbound[a]"},
      {"two outbounds of one tag",
       R"({"outbounds":[{"type":"direct","tag":"a"},{"type":"block","tag":"a"}]})",
       "initialize outbound: duplicate tag: a"},
      {"a circle of groups",
       R"({"outbounds":[{"type":"selector","tag":"a","outbounds":["b"]},)"
       R"({"type":"urltest","tag":"b","outbounds":["a"]}]})",
       "initialize outbound: circular outbound dependency at a"},
      {"a final that isn't there",
       R"({"outbounds":[{"type":"direct","tag":"a"}],"route":{"final":"b"}})",
       "initialize router: default outbound not found: b"},
      {"a controller without a port",
       R"({"experimental":{"clash_api":{"external_controller":"127.0.0.1"}}})",
       "decode config at experimental.clash_api: external_controller: missing port"},
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

TEST_F(ExportsTest, ScriptedFailuresAreGivenAsOftenAsTold) {
  session_.wishes()["new_service"] = {{"fail", "no new ones"}, {"times", 1}};
  session_.wishes()["start_service"] = {{"fail", "not yet"}, {"code", -7}, {"times", 1}};
  session_.wishes()["close_service"] = {{"fail", "not now"}, {"code", 5}, {"times", 2}};
  EXPECT_EQ(engine_.New(session_.configuration), 0U);
  EXPECT_EQ(engine_.LastError(), "no new ones");
  session_.wishes().erase("new_service");
  const std::uint64_t id = engine_.New(session_.configuration);
  EXPECT_EQ(engine_.start_service(id), -7);
  EXPECT_EQ(engine_.LastError(), "not yet");
  EXPECT_TRUE(IsFree(session_.proxy_port));
  EXPECT_EQ(engine_.start_service(id), 0);
  EXPECT_EQ(engine_.close_service(id), 5);
  EXPECT_EQ(engine_.close_service(id), 5);
  EXPECT_EQ(engine_.LastError(), "not now");
  EXPECT_FALSE(IsFree(session_.proxy_port)) << "a refused close holds what it has";
  EXPECT_EQ(engine_.close_service(id), 0);
  EXPECT_TRUE(IsFree(session_.proxy_port));
  session_.wishes() = {{"close_service", {{"code", 3}}}, {"release_on_failed_close", true}};
  EXPECT_EQ(engine_.close_service(engine_.Start(session_.configuration)), 3);
  EXPECT_TRUE(IsFree(session_.proxy_port));
}

TEST_F(ExportsTest, ExceptionsLeaveTheLibraryWhenAskedTo) {
  session_.wishes()["start_service"] = {{"throw", "thrown out of the start"}};
  session_.wishes()["close_service"] = {{"throw", ""}, {"throw_kind", "foreign"}, {"times", 1}};
  const std::uint64_t id = engine_.New(session_.configuration);
  EXPECT_THROW(engine_.start_service(id), std::runtime_error);
  EXPECT_THROW(engine_.close_service(id), int);
  EXPECT_EQ(engine_.close_service(id), 0);
}

TEST_F(ExportsTest, ACallCanBeHeldUntilAFileAppears) {
  const TemporaryFolder folder;
  session_.wishes()["start_service"] = {{"touch", (folder / "reached").generic_string()},
                                        {"until_file", (folder / "go on").generic_string()}};
  const std::uint64_t id = engine_.New(session_.configuration);
  std::atomic<bool> returned{false};
  std::thread starter([&] {
    EXPECT_EQ(engine_.start_service(id), 0);
    returned = true;
  });
  for (const net::Deadline end = Patience(); !std::filesystem::exists(folder / "reached");) {
    ASSERT_FALSE(end.passed());
    std::this_thread::yield();
  }
  EXPECT_FALSE(returned);
  EXPECT_TRUE(IsFree(session_.proxy_port));
  WriteBytes(folder / "go on", "");
  starter.join();
  EXPECT_EQ(engine_.close_service(id), 0);
}

TEST_F(ExportsTest, ATakenTunNameFailsTheStartUntilThereIsAnother) {
  struct Row {
    json taken;
    const char* name;
    bool starts;
  };
  const std::vector<Row> rows{{{"korvane-tun"}, "korvane-tun", false},
                              {{"korvane-tun"}, "Korvane-TUN-1-1", true},
                              {true, "Korvane-TUN-1-2", false}};
  for (const Row& row : rows) {
    session_.wishes()["tun_taken"] = row.taken;
    session_.configuration["inbounds"][1] = {
        {"type", "tun"}, {"tag", "tun-in"}, {"interface_name", row.name}};
    const std::uint64_t id = engine_.New(session_.configuration);
    EXPECT_EQ(engine_.start_service(id) == 0, row.starts) << row.name;
    if (!row.starts) {
      EXPECT_EQ(engine_.LastError(),
                "configure tun interface: Cannot create a file when that file already exists.");
    }
    EXPECT_EQ(engine_.close_service(id), 0);
  }
}

TEST_F(ExportsTest, AHeldConnectionHasSentAByteAndLastsAsLongAsTheService) {
  std::string error;
  auto listener = net::Listener::Open("127.0.0.1", 0, nullptr, error);
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

TEST_F(ExportsTest, TheNoiseGoesPastTheStreamsToTheSystemsStandardError) {
  session_.wishes()["noise"] = "noise: password=not-for-the-log";
  ::testing::internal::CaptureStderr();
  RunningService(engine_, session_.configuration).Close();
  const std::string written = ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(written, ::testing::ContainsRegex("noise.*\n.*noise.*\n.*noise"));
}

TEST(EngineVariants, EachLacksItsExportAloneAndWorksOtherwise) {
  const EngineLibrary no_close("sing-box-no-close.dll");
  EXPECT_EQ(no_close.close_service, nullptr);
  EXPECT_NE(no_close.set_crash_output, nullptr);
  EXPECT_NE(no_close.new_service("{}"), 0U);
  const EngineLibrary no_crash_output("sing-box-no-crash-output.dll");
  EXPECT_EQ(no_crash_output.set_crash_output, nullptr);
  EXPECT_EQ(no_crash_output.close_service(no_crash_output.new_service("{}")), 0);
}

// What stands in the file beside the library holds without any configuration. A library of one name
// is loaded once, so each row has a folder of its own.
TEST(LibraryFile, SaysWhatTheVersionIs) {
  struct Row {
    json options;
    std::optional<std::string> version;
  };
  const std::vector<Row> rows{{{{"version", "9.9"}}, "9.9"},
                              {{{"version", ""}}, ""},
                              {{{"version", nullptr}}, std::nullopt},
                              {{{"version_hex", "31c328ff"}}, "1\xc3(\xff"}};
  for (const Row& row : rows) {
    const TemporaryFolder folder(std::filesystem::path(u8"\u043f\u0430\u043f\u043a\u0430"));
    EXPECT_EQ(EngineLibrary(CopyOfLibrary(folder.path(), row.options)).Version(), row.version);
  }
}

TEST(LibraryFile, GivesTheCallsThatHaveNoConfigurationTheirFailuresAndSessionsTheirDefaults) {
  const TemporaryFolder folder;
  const EngineLibrary engine(
      CopyOfLibrary(folder.path(), {{"sessions", {{"close_service", {{"code", 4}, {"times", 1}}}}},
                                    {"set_crash_output", {{"code", 9}, {"fail", "no sink"}}},
                                    {"get_last_error", {{"fail", "null"}, {"times", 1}}},
                                    {"get_version", {{"crash", "null_write"}}}}));
  EXPECT_DEATH(engine.get_version(), "");
  EXPECT_EQ(engine.set_crash_output(""), 9);
  EXPECT_EQ(engine.LastError(), std::nullopt);
  EXPECT_EQ(engine.LastError(), "no sink");
  const std::uint64_t first = engine.new_service("{}");
  const std::uint64_t second = engine.new_service("{}");
  EXPECT_EQ(engine.close_service(first), 4);
  EXPECT_EQ(engine.close_service(second), 0) << "the count is the process's";
  EXPECT_EQ(engine.close_service(first), 0);
}

TEST(LibraryFile, ThatCannotBeUsedFailsEveryService) {
  const TemporaryFolder folder;
  const EngineLibrary engine(CopyOfLibrary(folder.path(), {{"versoin", "1"}}));
  EXPECT_EQ(engine.new_service("{}"), 0U);
  EXPECT_THAT(engine.LastError(), Optional(HasSubstr("sing-box.stand_in.json")));
}

}  // namespace
}  // namespace korvane::test
