// The seven functions themselves: what they give, how they fail, and what they can be told to do.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <string>
#include <thread>

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

void WaitForFile(const std::filesystem::path& file) {
  const net::Deadline end = Patience();
  while (!std::filesystem::exists(file)) {
    ASSERT_FALSE(end.passed());
    std::this_thread::yield();
  }
}

std::string Utf8(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return {text.begin(), text.end()};
}

class ExportsTest : public ::testing::Test {
 protected:
  EngineLibrary engine_;
  Session session_;
};

TEST_F(ExportsTest, AnUnusableConfigurationIsToldByItsPlace) {
  struct Row {
    const char* why;
    std::string text;
    const char* error;
  };
  const std::array rows{
      Row{"no text", "", "decode config at row 1"},
      Row{"cut JSON", "{\n \"log\": {", "decode config at row 2, column "},
      Row{"not an object", "[]", "decode config: expected an object, got array"},
      Row{"bytes that are no UTF-8", "{\"log\":\"\xff\"}", "decode config at row 1"},
      Row{"an unknown field", R"({"foo":1})", "decode config: unknown field \"foo\""},
      Row{"a list where a map belongs", R"({"inbounds":{}})",
          "decode config at inbounds: expected an array, got object"},
      Row{"an unknown inbound", R"({"inbounds":[{"type":"carrier-pigeon"}]})",
          "decode config at inbounds[0]: unknown inbound type: carrier-pigeon"},
      Row{"a port out of range", R"({"inbounds":[{"type":"mixed","listen_port":65536}]})",
          "decode config at inbounds[0].listen_port: expected 0 to 65535"},
      Row{"a port of another type", R"({"inbounds":[{"type":"mixed","listen_port":"1"}]})",
          "decode config at inbounds[0].listen_port: expected an integer, got string"},
      Row{"an address of other machines", R"({"inbounds":[{"type":"mixed","listen":"8.8.8.8"}]})",
          "decode config at inbounds[0]: listen address 8.8.8.8"},
      Row{"an outbound without a type", R"({"outbounds":[{"tag":"a"}]})",
          "decode config at outbounds[0]: missing outbound type"},
      Row{"a member that isn't there",
          R"({"outbounds":[{"type":"selector","tag":"a","outbounds":["b"]}]})",
          "initialize outbound: dependency[b] not found for outbound[a]"},
      Row{"two outbounds of one tag",
          R"({"outbounds":[{"type":"direct","tag":"a"},{"type":"block","tag":"a"}]})",
          "initialize outbound: duplicate tag: a"},
      Row{"a circle of groups",
          R"({"outbounds":[{"type":"selector","tag":"a","outbounds":["b"]},)"
          R"({"type":"urltest","tag":"b","outbounds":["a"]}]})",
          "initialize outbound: circular outbound dependency at a"},
      Row{"a final that isn't there",
          R"({"outbounds":[{"type":"direct","tag":"a"}],"route":{"final":"b"}})",
          "initialize router: default outbound not found: b"},
      Row{"a controller without a port",
          R"({"experimental":{"clash_api":{"external_controller":"127.0.0.1"}}})",
          "decode config at experimental.clash_api: external_controller: missing port"},
      Row{"a misspelt wish", R"({"experimental":{"stand_in":{"new_servise":{}}}})",
          "decode config at experimental.stand_in: unknown field \"new_servise\""},
      Row{"a wish for nobody", R"({"experimental":{"stand_in":{"outbounds":{"x":{}}}}})",
          "decode config at experimental.stand_in.outbounds.x: no such outbound"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(engine_.new_service(row.text.c_str()), 0U) << row.why;
    EXPECT_THAT(engine_.LastError(), Optional(StartsWith(row.error))) << row.why;
  }
  EXPECT_EQ(engine_.new_service(nullptr), 0U);
}

TEST_F(ExportsTest, DeepNestingIsReadAndRefusedLikeAnythingElse) {
  const std::string deep = R"({"log":)" + std::string(1000000, '[') + std::string(1000000, ']');
  const std::uint64_t id = engine_.new_service((deep + "}").c_str());
  EXPECT_NE(id, 0U);
  EXPECT_EQ(engine_.close_service(id), 0);
  EXPECT_EQ(engine_.new_service(deep.c_str()), 0U);
}

TEST_F(ExportsTest, NothingRunsBeforeTheStart) {
  const std::uint64_t id = engine_.New(session_.configuration);
  EXPECT_NE(id, 0U);
  EXPECT_TRUE(IsFree(session_.proxy_port));
  EXPECT_EQ(engine_.close_service(id), 0);
}

TEST_F(ExportsTest, AnUnknownOrClosedServiceIsAFailure) {
  RunningService service(engine_, session_.configuration);
  const std::uint64_t id = service.id();
  service.Close();
  for (const std::uint64_t unknown : {std::uint64_t{0}, id, id + 1}) {
    EXPECT_NE(engine_.start_service(unknown), 0);
    EXPECT_NE(engine_.close_service(unknown), 0);
    EXPECT_EQ(engine_.LastError(), "service not found");
  }
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
}

TEST_F(ExportsTest, ScriptedFailuresAreGivenAsOftenAsTold) {
  session_.wishes()["new_service"] = {{"fail", "no new ones"}, {"times", 0}};
  session_.wishes()["start_service"] = {{"fail", "not yet"}, {"code", -7}, {"times", 1}};
  session_.wishes()["close_service"] = {{"fail", "not now"}, {"code", 5}, {"times", 2}};
  const std::uint64_t id = engine_.New(session_.configuration);
  EXPECT_EQ(engine_.start_service(id), -7);
  EXPECT_EQ(engine_.LastError(), "not yet");
  EXPECT_EQ(engine_.start_service(id), 0);
  EXPECT_EQ(engine_.close_service(id), 5);
  EXPECT_EQ(engine_.close_service(id), 5);
  EXPECT_EQ(engine_.LastError(), "not now");
  EXPECT_FALSE(IsFree(session_.proxy_port)) << "a refused close holds what it has";
  EXPECT_EQ(engine_.close_service(id), 0);
  EXPECT_TRUE(IsFree(session_.proxy_port));
}

TEST_F(ExportsTest, ANewServiceCanBeRefused) {
  session_.wishes()["new_service"]["fail"] = "parse server list: secret";
  EXPECT_EQ(engine_.New(session_.configuration), 0U);
  EXPECT_EQ(engine_.LastError(), "parse server list: secret");
}

TEST_F(ExportsTest, AFailedCloseCanGiveEverythingBackAllTheSame) {
  session_.wishes() = {{"close_service", {{"code", 3}}}, {"release_on_failed_close", true}};
  const std::uint64_t id = engine_.Start(session_.configuration);
  EXPECT_EQ(engine_.close_service(id), 3);
  EXPECT_TRUE(IsFree(session_.proxy_port));
}

TEST_F(ExportsTest, ExceptionsLeaveTheLibraryWhenAskedTo) {
  session_.wishes()["start_service"] = {{"throw", "thrown out of the start"}};
  session_.wishes()["close_service"] = {{"throw", ""}, {"throw_kind", "foreign"}, {"times", 1}};
  const std::uint64_t id = engine_.New(session_.configuration);
  try {
    engine_.start_service(id);
    ADD_FAILURE() << "no exception";
  } catch (const std::exception& thrown) {
    EXPECT_STREQ(thrown.what(), "thrown out of the start");
  }
  EXPECT_THROW(engine_.close_service(id), int);
  EXPECT_EQ(engine_.close_service(id), 0);
  session_.wishes() = {{"new_service", {{"throw", "thrown out of new"}}}};
  EXPECT_THROW(engine_.New(session_.configuration), std::runtime_error);
}

TEST_F(ExportsTest, ACallCanBeHeldUntilAFileAppears) {
  const TemporaryFolder folder;
  session_.wishes()["start_service"] = {{"touch", Utf8(folder / "reached")},
                                        {"until_file", Utf8(folder / "go on")}};
  const std::uint64_t id = engine_.New(session_.configuration);
  std::atomic<bool> returned{false};
  std::thread starter([&] {
    EXPECT_EQ(engine_.start_service(id), 0);
    returned = true;
  });
  WaitForFile(folder / "reached");
  EXPECT_FALSE(returned);
  EXPECT_TRUE(IsFree(session_.proxy_port));
  WriteBytes(folder / "go on", "");
  starter.join();
  EXPECT_FALSE(IsFree(session_.proxy_port));
  EXPECT_EQ(engine_.close_service(id), 0);
}

TEST_F(ExportsTest, ACallCanTakeItsTime) {
  session_.wishes()["close_service"]["wait_ms"] = 40;
  RunningService service(engine_, session_.configuration);
  const auto before = std::chrono::steady_clock::now();
  service.Close();
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(40));
}

TEST_F(ExportsTest, ATakenTunNameFailsTheStartUntilThereIsAnother) {
  const auto with_name = [&](const std::string& name) {
    session_.configuration["inbounds"][1] = {
        {"type", "tun"}, {"tag", "tun-in"}, {"interface_name", name}};
    return engine_.New(session_.configuration);
  };
  session_.wishes()["tun_taken"] = {"korvane-tun"};
  const std::uint64_t taken = with_name("korvane-tun");
  EXPECT_NE(engine_.start_service(taken), 0);
  EXPECT_EQ(engine_.LastError(),
            "configure tun interface: Cannot create a file when that file already exists.");
  EXPECT_EQ(engine_.close_service(taken), 0);
  const std::uint64_t fresh = with_name("Korvane-TUN-1-1");
  EXPECT_EQ(engine_.start_service(fresh), 0);
  EXPECT_EQ(engine_.close_service(fresh), 0);
  session_.wishes()["tun_taken"] = true;
  const std::uint64_t any = with_name("Korvane-TUN-1-2");
  EXPECT_NE(engine_.start_service(any), 0);
  EXPECT_EQ(engine_.close_service(any), 0);
}

TEST_F(ExportsTest, ACrashTakesTheProcessDownAndLeavesItsReport) {
  // On Windows the case runs once more, in a process of its own, up to the crash: the file's place
  // must be the same there.
  const std::filesystem::path report = std::filesystem::path(KORVANE_TEST_FOLDER) / "crash_report";
  for (const char* kind : {"null_write", "illegal_instruction", "abort"}) {
    session_.wishes()["start_service"]["crash"] = kind;
    EXPECT_DEATH(
        {
          engine_.set_crash_output(Utf8(report).c_str());
          engine_.start_service(engine_.New(session_.configuration));
        },
        "");
    EXPECT_THAT(ReadBytes(report), Optional(HasSubstr("engine stand-in\nfatal error: "))) << kind;
    std::filesystem::remove(report);
  }
}

TEST_F(ExportsTest, TheCrashOutputMustBeAFileThatCanBeOpened) {
  const TemporaryFolder folder;
  EXPECT_EQ(engine_.set_crash_output(""), 0);
  EXPECT_NE(engine_.set_crash_output(Utf8(folder / "absent" / "file").c_str()), 0);
  EXPECT_THAT(engine_.LastError(), Optional(HasSubstr("can't be opened")));
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
  const std::uint64_t id = no_crash_output.new_service("{}");
  EXPECT_EQ(no_crash_output.close_service(id), 0);
}

// What stands in the file beside the library holds without any configuration.
class LibraryFileTest : public ::testing::Test {
 protected:
  EngineLibrary Load(const json& options) const {
    return EngineLibrary(CopyOfLibrary(folder_.path(), options));
  }

  TemporaryFolder folder_{std::filesystem::path(u8"\u043f\u0430\u043f\u043a\u0430")};
};

TEST_F(LibraryFileTest, TheVersionCanBeAnyText) {
  EXPECT_EQ(Load({{"version", "9.9"}}).Version(), "9.9");
}
TEST_F(LibraryFileTest, WithoutAFailureThereIsNoLastError) {
  EXPECT_EQ(Load(json::object()).LastError(), std::nullopt);
}
TEST_F(LibraryFileTest, TheVersionCanBeEmpty) { EXPECT_EQ(Load({{"version", ""}}).Version(), ""); }
TEST_F(LibraryFileTest, TheVersionCanBeNull) {
  EXPECT_EQ(Load({{"version", nullptr}}).Version(), std::nullopt);
}
TEST_F(LibraryFileTest, TheVersionCanBeBytesThatAreNoUtf8) {
  EXPECT_EQ(Load({{"version_hex", "31c328ff"}}).Version(), "1\xc3(\xff");
}

TEST_F(LibraryFileTest, AVersionQueryAndAFreeCanCrash) {
  const EngineLibrary engine =
      Load({{"get_version", {{"crash", "null_write"}}}, {"free_string", {{"crash", "abort"}}}});
  EXPECT_DEATH(engine.get_version(), "");
  EXPECT_EQ(engine.new_service("x"), 0U);
  EXPECT_DEATH(engine.free_string(engine.get_last_error()), "");
}

TEST_F(LibraryFileTest, SessionsTakeTheirDefaultsFromIt) {
  const EngineLibrary engine = Load({{"sessions", {{"close_service", {{"code", 4}, {"times", 1}}}}},
                                     {"set_crash_output", {{"code", 9}, {"fail", "no sink"}}},
                                     {"get_last_error", {{"fail", "null"}, {"times", 1}}}});
  EXPECT_EQ(engine.set_crash_output(""), 9);
  EXPECT_EQ(engine.LastError(), std::nullopt);
  EXPECT_EQ(engine.LastError(), "no sink");
  const std::uint64_t first = engine.new_service("{}");
  const std::uint64_t second = engine.new_service("{}");
  EXPECT_EQ(engine.close_service(first), 4);
  EXPECT_EQ(engine.close_service(second), 0) << "the count is the process's";
  EXPECT_EQ(engine.close_service(first), 0);
}

TEST_F(LibraryFileTest, AFileThatCannotBeUsedFailsEveryService) {
  const EngineLibrary engine = Load({{"versoin", "1"}});
  EXPECT_EQ(engine.new_service("{}"), 0U);
  EXPECT_THAT(engine.LastError(), Optional(HasSubstr("sing-box.stand_in.json")));
}

}  // namespace
}  // namespace korvane::test
