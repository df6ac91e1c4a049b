// The console's codec, byte for byte: what it sends as the host sees it, and what it makes of
// bytes.
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "support/host_driver/host_process.h"

namespace korvane::test {
namespace {

// One echo host for a table of rows.
class ConsoleCodec : public testing::Test {
 protected:
  Json Success(const std::string& method, const Json& arguments) {
    return host_.Call(method, arguments)["success"];
  }

  HostUser user_;
  HostProcess host_{user_, {.program = "echo_host"}};
};

std::string Repeated(const std::string& text, std::size_t times) {
  std::string repeated;
  for (std::size_t i = 0; i < times; ++i) {
    repeated += text;
  }
  return repeated;
}

// The name "hex" lies in front of every value: five bytes, which count for the padding.
constexpr char kName[] = "0703686578";

TEST_F(ConsoleCodec, SendsEachFormAsItsBytes) {
  struct Row {
    const char* text;  // JSON
    std::string bytes;
  };
  const Row rows[] = {
      {"null", "00"},
      {"true", "01"},
      {"false", "02"},
      {"42", "032a000000"},
      {"-1", "03ffffffff"},
      {"2147483647", "03ffffff7f"},
      {"2147483648", "040000008000000000"},
      {"-2147483648", "0300000080"},
      {"-2147483649", "04ffffff7fffffffff"},
      {R"({"$int64":5})", "040500000000000000"},
      {"1718000000123", "047b9cc70090010000"},
      {"1.5", "060000000000000000f83f"},
      {"1e0", "060000000000000000f03f"},
      {R"({"$double":1})", "060000000000000000f03f"},
      {R"({"$double":"-Infinity"})", "060000000000000000f0ff"},
      {R"("")", "0700"},
      {R"("\u00e9")", "0702c3a9"},
      {R"({"$latin1":"\u00ff\u0080a"})", "0703ff8061"},
      {R"({"$bytes":"010203"})", "0803010203"},
      {R"({"$int32list":[1,-2]})",
       "090200"
       "01000000feffffff"},
      {R"({"$int64list":[1]})",
       "0a0100"
       "0100000000000000"},
      {R"({"$float64list":[]})", "0b0000"},
      {R"({"$float64list":[1.5]})",
       "0b0100"
       "000000000000f83f"},
      {R"({"$float32list":[1.5]})",
       "0e0100"
       "0000c03f"},
      {R"([null,true,7])", "0c0300010307000000"},
      {R"({"b":1,"a":null})",
       "0d0207016203010000000701"
       "6100"},
      {R"({"$map":[[1,false],["b",true]]})",
       "0d020301000000020701"
       "6201"},
      {R"([["x",1.5],{"$int32list":[]}])",
       "0c020c02070178"
       "06000000000000000000f83f"
       "09000000"},
  };
  int id = 0;
  for (const auto& row : rows) {
    // As text: the order of a map's keys is to be seen, and the driver's JSON sorts them.
    host_.SendText(R"({"call":"hex","id":)" + std::to_string(++id) + R"(,"args":)" + row.text +
                   "}");
    EXPECT_EQ(host_.Reply(id)["success"], kName + row.bytes) << row.text;
  }
}

TEST_F(ConsoleCodec, SendsSizesInTheirShortestForm) {
  EXPECT_EQ(Success("hex", std::string(253, 'a')),
            kName + std::string("07fd") + Repeated("61", 253));
  EXPECT_EQ(Success("hex", std::string(254, 'a')),
            kName + std::string("07fefe00") + Repeated("61", 254));
  EXPECT_EQ(Success("hex", std::string(255, 'a')),
            kName + std::string("07feff00") + Repeated("61", 255));
  EXPECT_EQ(Success("length", std::string(65535, 'a')), std::to_string(8 + 1 + 3 + 65535));
  EXPECT_EQ(Success("length", std::string(65536, 'a')), std::to_string(8 + 1 + 5 + 65536));
}

TEST_F(ConsoleCodec, PrintsEachAlternative) {
  struct Row {
    std::string envelope;
    const char* expected;  // of the reply's line
  };
  const Row rows[] = {
      {"0000", R"({"success":null})"},
      {"0001", R"({"success":true})"},
      {"000378000000", R"({"success":120})"},
      {"00040500000000000000", R"({"success":{"$int64":5}})"},
      {"0004ffffff7fffffffff", R"({"success":-2147483649})"},
      {"0006000000000000"
       "000000000000f03f",
       R"({"success":1.0})"},
      {"0006000000000000"
       "000000000000f87f",
       R"({"success":{"$double":"NaN"}})"},
      {"00070c646973636f6e6e6563746564", R"({"success":"disconnected"})"},
      {"000702ff61", R"({"success":{"$latin1":"\u00ffa"}})"},
      {"0008020aff", R"({"success":{"$bytes":"0aff"}})"},
      {"000901"
       "00"
       "05000000",
       R"({"success":{"$int32list":[5]}})"},
      {"000a01"
       "0000000000"
       "0500000000000000",
       R"({"success":{"$int64list":[5]}})"},
      {"000b01"
       "0000000000"
       "000000000000f83f",
       R"({"success":{"$float64list":[1.5]}})"},
      {"000e01"
       "00"
       "0000c03f",
       R"({"success":{"$float32list":[1.5]}})"},
      {"000c03000103"
       "07000000",
       R"({"success":[null,true,7]})"},
      {"000d01070161"
       "0c00",
       R"({"success":{"a":[]}})"},
      {"000d0103010000000702"
       "6869",
       R"({"success":{"$map":[[1,"hi"]]}})"},
      {"000d02070161010701"
       "6102",
       R"({"success":{"$map":[["a",true],["a",false]]}})"},
      {"000d0107062469"
       "6e743634"
       "00",
       R"({"success":{"$map":[["$int64",null]]}})"},
      {"0107015800"
       "00",
       R"({"error":{"code":"X","message":null,"details":null}})"},
      {"0107014507016d06"
       "000000000000f03f",
       R"({"error":{"code":"E","message":"m","details":1.0}})"},
      {"", R"({"not_implemented":true})"},
  };
  for (const auto& row : rows) {
    const auto expected = Json::parse(row.expected);
    const auto line = host_.Call("say", {{"$bytes", row.envelope}});
    EXPECT_TRUE(Matches(line, expected)) << row.envelope << " was printed as " << line;
  }
}

TEST_F(ConsoleCodec, TellsBytesThatDartWouldRefuse) {
  struct Row {
    const char* envelope;
    const char* why;
  };
  const Row rows[] = {
      {"02", "no envelope"},
      {"000001", "bytes left over"},
      {"000702", "a size that the bytes don't hold"},
      {"0003010000", "cut at byte 2"},
      {"000cffffffffff", "a size that the bytes don't hold"},
      {"000aff00000020", "a size that the bytes don't hold"},
      {"000f", "unknown type byte 15"},
      {"0006000000", "cut at byte 2"},
      {"01000000", "no error envelope"},
      {"0107015803"
       "01000000"
       "00",
       "no error envelope"},
  };
  for (const auto& row : rows) {
    const auto line = host_.Call("say", {{"$bytes", row.envelope}});
    EXPECT_EQ(line["malformed"], row.why) << row.envelope;
    EXPECT_EQ(line["hex"], row.envelope);
  }
  const auto deep = "00" + Repeated("0c01", 120) + "00";
  EXPECT_TRUE(host_.Call("say", {{"$bytes", deep}}).contains("success"));
}

TEST_F(ConsoleCodec, RefusesLinesThatHaveNoBytes) {
  struct Row {
    const char* line;
    const char* why;
  };
  const Row rows[] = {
      {R"({"call":"hex","args":{"$int63":1}})", "\"args\": \"$int63\" is no form of a value"},
      {R"({"call":"hex","args":9223372036854775808})", "\"args\": an integer above 64 bits"},
      {R"({"call":"hex","args":{"$int64":1.5}})",
       "\"args\": \"$int64\" wants an integer of 64 bits"},
      {R"({"call":"hex","args":{"$int32list":[2147483648]}})",
       "\"args\": a list of numbers holds something that doesn't fit"},
      {R"({"call":"hex","args":{"$bytes":"0"}})",
       "\"args\": \"$bytes\" wants hexadecimal digits, two for each byte"},
      {R"({"call":"hex","args":{"$latin1":"\u0100"}})",
       "\"args\": \"$latin1\" wants a string of characters up to U+00FF"},
      {R"({"call":"hex","args":{"$map":[[1]]}})", "\"args\": \"$map\" wants a list of pairs"},
      {R"({"raw":"0g"})", "\"raw\" wants hexadecimal digits, two for each byte"},
      {R"({"call":5})", "\"call\" wants a text"},
      {R"({"call":"hex","argument":1})", "\"argument\" doesn't belong here"},
      {R"({"call":"hex","channel":"nowhere"})", "there is no channel \"nowhere\""},
      {R"({"wait":{"state":1}})", "\"state\" wants a text"},
      {R"({"wait":{"moon":"full"}})", "\"moon\" can't be waited for"},
      {R"({"wait":{"reply":99}})", "there was no call 99"},
      {R"({"window":{"wparam":1}})", "\"message\" is missing"},
      {R"({"close":false})", "\"close\" wants true"},
      {R"([1])", "a line is one JSON object"},
      {R"({"dance":true})", "no such line"},
  };
  for (const auto& row : rows) {
    host_.SendText(row.line);
    EXPECT_EQ(host_.AwaitKey("console_error")["console_error"], row.why) << row.line;
  }
  host_.SendText("{\"call\":");
  EXPECT_NE(host_.AwaitKey("console_error")["console_error"].get<std::string>().find("parse error"),
            std::string::npos);
  EXPECT_EQ(host_.Call("length")["success"], "9") << "a bad line ended the console";
}

}  // namespace
}  // namespace korvane::test
