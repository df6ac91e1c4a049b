// The console between a script and a host: its bytes beside bytes that were written down by hand,
// and what it must tell of a host or a script that is wrong.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "stand_ins/interface/played_host.h"
#include "support/scoped_environment.h"

namespace korvane::test {
namespace {

using ::testing::ElementsAre;
using ::testing::ExitedWithCode;
using ::testing::IsEmpty;

std::string Repeated(const std::string& text, std::size_t times) {
  std::string repeated;
  for (std::size_t i = 0; i < times; ++i) {
    repeated += text;
  }
  return repeated;
}

// A string of up to 253 bytes.
std::string TextBytes(const std::string& text) {
  std::string hex = "07";
  for (const auto byte : std::string(1, static_cast<char>(text.size())) + text) {
    hex += {"0123456789abcdef"[static_cast<std::uint8_t>(byte) / 16],
            "0123456789abcdef"[static_cast<std::uint8_t>(byte) % 16]};
  }
  return hex;
}

TEST(Console, SendsEachFormAsItsBytes) {
  struct Row {
    std::string arguments;  // JSON
    std::string bytes;      // behind the name "hex": five bytes, which count for the padding
  };
  const auto quoted = [](std::size_t size) { return '"' + std::string(size, 'a') + '"'; };
  const std::vector<Row> rows{
      {"null", "00"},
      {"true", "01"},
      {"-1", "03ffffffff"},
      {"2147483648", "040000008000000000"},
      {R"({"$int64":5})", "040500000000000000"},
      {"1.5", "060000000000000000f83f"},
      {R"({"$double":1})", "060000000000000000f03f"},
      {R"({"$double":"-Infinity"})", "060000000000000000f0ff"},
      {R"("")", "0700"},
      {R"("\u00e9")", "0702c3a9"},
      {R"({"$latin1":"\u00ff\u0080a"})", "0703ff8061"},
      {R"({"$bytes":"010203"})", "0803010203"},
      {R"({"$int32list":[1,-2]})", "09020001000000feffffff"},
      {R"({"$int64list":[1]})", "0a01000100000000000000"},
      {R"({"$float64list":[]})", "0b0000"},
      {R"({"$float32list":[1.5]})", "0e01000000c03f"},
      {R"([null,true,7])", "0c0300010307000000"},
      {R"({"b":1,"a":null})", "0d02070162030100000007016100"},
      {R"({"$map":[[1,false],["b",true]]})", "0d0203010000000207016201"},
      {quoted(253), "07fd" + Repeated("61", 253)},
      {quoted(254), "07fefe00" + Repeated("61", 254)},
      {quoted(65536), "07ff00000100" + Repeated("61", 65536)},
  };
  std::vector<std::string> script;
  for (const Row& row : rows) {
    script.push_back(R"({"call":"hex","args":)" + row.arguments + "}");
  }
  std::vector<std::string> seen;
  PlayedHost host;
  host.on_call = [&](const PlayedCall& call) {
    seen.push_back(call.hex);
    call.Answer("0000");
  };
  host.Play(script);
  ASSERT_EQ(seen.size(), rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(seen[i], TextBytes("hex") + rows[i].bytes) << rows[i].arguments.substr(0, 80);
  }
}

TEST(Console, TellsWhatAnAnswerHoldsAndWhichBytesDartWouldRefuse) {
  const auto malformed = [](const std::string& why, const std::string& hex) {
    return Json{{"malformed", why}, {"hex", hex}}.dump();
  };
  struct Row {
    std::string envelope;
    std::string line;
  };
  const std::vector<Row> rows{
      {"0000", R"({"success":null})"},
      {"0001", R"({"success":true})"},
      {"000378000000", R"({"success":120})"},
      {"00040500000000000000", R"({"success":{"$int64":5}})"},
      {"0006000000000000000000000000f03f", R"({"success":1.0})"},
      {"0006000000000000000000000000f87f", R"({"success":{"$double":"NaN"}})"},
      {"00070c646973636f6e6e6563746564", R"({"success":"disconnected"})"},
      {"000702ff61", R"({"success":{"$latin1":"\u00ffa"}})"},
      {"0008020aff", R"({"success":{"$bytes":"0aff"}})"},
      {"0009010005000000", R"({"success":{"$int32list":[5]}})"},
      {"000b010000000000000000000000f83f", R"({"success":{"$float64list":[1.5]}})"},
      {"000c0300010307000000", R"({"success":[null,true,7]})"},
      {"000d010701610c00", R"({"success":{"a":[]}})"},
      {"000d01030100000007026869", R"({"success":{"$map":[[1,"hi"]]}})"},
      {"000d01070624696e74363400", R"({"success":{"$map":[["$int64",null]]}})"},
      {"010701580000", R"({"error":{"code":"X","message":null,"details":null}})"},
      {"0107014507016d06000000000000f03f", R"({"error":{"code":"E","message":"m","details":1.0}})"},
      {"", R"({"not_implemented":true})"},
      {"02", malformed("no envelope", "02")},
      {"000001", malformed("bytes left over", "000001")},
      {"000702", malformed("a size that the bytes don't hold", "000702")},
      {"0003010000", malformed("cut at byte 2", "0003010000")},
      {"000f", malformed("unknown type byte 15", "000f")},
      {"01070158030100000000", malformed("no error envelope", "01070158030100000000")},
  };
  PlayedHost host;
  std::size_t next = 0;
  host.on_call = [&](const PlayedCall& call) { call.Answer(rows[next++].envelope); };
  std::vector<Json> replies;
  for (Json& line : host.Play(std::vector<std::string>(rows.size(), R"({"call":"say"})"))) {
    if (line.contains("reply")) {
      EXPECT_EQ(line["reply"], replies.size() + 1);
      line.erase("reply");
      line.erase("thread");
      replies.push_back(line);
    }
  }
  ASSERT_EQ(replies.size(), rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(replies[i].dump(), Json::parse(rows[i].line).dump()) << rows[i].envelope;
  }
}

TEST(Console, RefusesLinesThatAskForNothing) {
  struct Row {
    const char* line;
    const char* why;
  };
  const std::vector<Row> rows{
      {R"({"call":"hex","args":{"$int63":1}})", "\"args\": \"$int63\" is no form of a value"},
      {R"({"call":"hex","args":{"$bytes":"0"}})",
       "\"args\": \"$bytes\" wants hexadecimal digits, two for each byte"},
      {R"({"call":5})", "\"call\" wants a text"},
      {R"({"call":"hex","argument":1})", "\"argument\" doesn't belong here"},
      {R"({"call":"hex","channel":"nowhere"})", "there is no channel \"nowhere\""},
      {R"({"wait":{"moon":"full"}})", "\"moon\" can't be waited for"},
      {R"([1])", "a line is one JSON object"},
      {R"({"dance":true})", "no such line"},
  };
  std::vector<std::string> script;
  for (const Row& row : rows) {
    script.emplace_back(row.line);
  }
  script.insert(script.end(), {"# a remark", "", R"({"call":"good"})"});
  const std::vector<Json> lines = PlayedHost().Play(script);
  const std::vector<Json> errors = ValuesOf(lines, "console_error");
  ASSERT_EQ(errors.size(), rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(errors[i], rows[i].why) << rows[i].line;
  }
  EXPECT_THAT(ValuesOf(lines, "reply"), ElementsAre(1)) << "a bad line was sent";
}

// Without these lines a host that breaks the interface's rules would pass every scenario.
TEST(Console, TellsWhenTheHostBreaksARule) {
  PlayedHost host;
  host.on_engine = [](FlutterDesktopEngineRef engine) {
    for (int i = 0; i < 2; ++i) {
      FlutterDesktopEngineSetNextFrameCallback(
          engine, [](void*) {}, nullptr);
      FlutterDesktopEngineGetPluginRegistrar(engine, "TrayManagerPlugin");
    }
    FlutterDesktopMessengerUnlock(FlutterDesktopEngineGetMessenger(engine));
  };
  FlutterDesktopMessengerRef kept = nullptr;
  const FlutterDesktopMessageResponseHandle* answered = nullptr;
  host.on_call = [&](const PlayedCall& call) {
    kept = FlutterDesktopMessengerAddRef(call.messenger);
    answered = call.handle;
    std::thread([&] { call.Answer("0000"); }).join();
    call.Answer("0000");
    call.Send("vpn", "0701");
  };
  const std::vector<Json> lines = host.Play({R"({"call":"all"})"});
  EXPECT_THAT(ValuesOf(lines, "violation"),
              ElementsAre("a second next-frame callback at a time",
                          "a second registrar for TrayManagerPlugin", "an unlock without the lock",
                          "SendResponse off the window thread without the lock",
                          "a response handle that isn't open"));
  EXPECT_THAT(ValuesOf(lines, "malformed"), ElementsAre("a size that the bytes don't hold"));
  FlutterDesktopMessengerLock(kept);
  EXPECT_FALSE(FlutterDesktopMessengerIsAvailable(kept)) << "behind the engine's end";
  FlutterDesktopMessengerUnlock(kept);
  FlutterDesktopMessengerRelease(kept);
}

// Says both state words in both ways, and answers.
void Connect(const PlayedCall& call) {
  for (const char* word : {"vpn_connecting", "vpn_connected"}) {
    call.Send("vpn_events", "000d01" + TextBytes("status") + TextBytes(word));
    call.Send("vpn", TextBytes("onVPNStateChanged") + TextBytes(word));
  }
  call.Answer("0000");
}

const std::vector<std::string> kMetWaits{
    R"({"call":"connect"})",
    R"({"wait":{"reply":1}})",
    "# The words came before that reply; waits in a row begin together.",
    R"({"wait":{"state":"vpn_connecting"}})",
    R"({"wait":{"state":"vpn_connected"}})",
    R"({"wait":{"idle_ms":20}})",
};

TEST(Console, MeetsWaitsByWhatArrivedBehindTheLastOne) {
  PlayedHost host;
  host.on_call = Connect;
  EXPECT_THAT(ValuesOf(host.Play(kMetWaits), "timeout"), IsEmpty());
}

TEST(Console, EndsTheProcessWhenAWaitRunsOut) {
  struct Row {
    const char* why;
    const char* line;
  };
  const std::vector<Row> rows{
      {"both ways of a word are one arrival, and it was taken",
       R"({"wait":{"state":"vpn_connected"},"timeout_ms":20})"},
      {"no such method", R"({"wait":{"method":"onVPNError"},"timeout_ms":20})"},
      {"no such change", R"({"wait":{"window":"restored"},"timeout_ms":20})"},
      {"no quiet so long", R"({"wait":{"idle_ms":60000},"timeout_ms":20})"},
      {"a call that stays open at the end", R"({"call":"never"})"},
  };
  const ScopedEnvironment end("KORVANE_CONSOLE_END_MS", "20");
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    std::vector<std::string> script = kMetWaits;
    script.emplace_back(row.line);
    PlayedHost host;
    host.on_call = [](const PlayedCall& call) {
      if (call.name == "connect") {
        Connect(call);
      }
    };
    EXPECT_EXIT(host.Play(script), ExitedWithCode(3), "");
  }
}

}  // namespace
}  // namespace korvane::test
