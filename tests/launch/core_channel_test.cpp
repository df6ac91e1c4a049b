#include "launch/core_channel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "flutter_boundary/standard_method_codec.h"
#include "recorder/startup_recorder.h"
#include "support/fake_machine.h"
#include "vpn/vpn_state.h"

namespace korvane {
namespace {

using flutter::EncodableList;
using flutter::EncodableMap;
using flutter::EncodableValue;
using nlohmann::json;
using testing::ElementsAre;
using testing::IsEmpty;

// The Dart side of one channel, in bytes.
class OneChannelMessenger : public flutter::BinaryMessenger {
 public:
  std::string channel;
  flutter::BinaryMessageHandler handler;

  void Send(const std::string&, flutter::MessageBytes) const override {}
  void SendWithReply(const std::string&, flutter::MessageBytes,
                     flutter::BinaryReply) const override {}
  void SetMessageHandler(const std::string& name, flutter::BinaryMessageHandler receiver) override {
    channel = name;
    handler = std::move(receiver);
  }
};

// An answer in words: "success" and a text, "error: code, message", or "not implemented".
class AnswerInWords : public flutter::MethodResult<> {
 public:
  std::string words;

 protected:
  void SuccessInternal(const EncodableValue* value) override {
    words = "success";
    if (value != nullptr && !value->IsNull()) {
      words += " " + *value->GetIf<std::string>();
    }
  }
  void ErrorInternal(const std::string& code, const std::string& message,
                     const EncodableValue* details) override {
    words = "error: " + code + ", " + message;
    words += details != nullptr && !details->IsNull() ? ", with details" : "";
  }
  void NotImplementedInternal() override { words = "not implemented"; }
};

class CoreChannelTest : public testing::Test {
 protected:
  CoreChannelTest() { StartupRecorder::instance(); }

  std::string Call(const std::string& method, EncodableValue arguments = {}) {
    const auto& codec = flutter::StandardMethodCodec::GetInstance();
    AnswerInWords answer;
    messenger_.handler(codec.EncodeMethodCall(flutter::MethodCall<>(method, std::move(arguments))),
                       [&](flutter::MessageBytes reply) { codec.DecodeEnvelope(reply, answer); });
    return answer.words;
  }

  test::FakeMachine& machine_ = test::FakeMachine::Get();
  OneChannelMessenger messenger_;
  std::unique_ptr<flutter::MethodChannel<>> channel_ = OpenCoreChannel(&messenger_);
};

EncodableMap Breadcrumb(EncodableValue name, EncodableValue dart_ms) {
  return {{"name", std::move(name)}, {"dartMs", std::move(dart_ms)}};
}

EncodableMap Update(EncodableValue attempt, EncodableValue success, EncodableValue result) {
  return {{"last_attempt_at", std::move(attempt)},
          {"last_successful_check_at", std::move(success)},
          {"last_result", std::move(result)}};
}

TEST_F(CoreChannelTest, HasItsNameAndKnowsThreeMethods) {
  EXPECT_EQ(messenger_.channel, "com.sundrelak.korvane/core");
  EXPECT_EQ(Call("startupbreadcrumb", 5.0), "not implemented");
  EXPECT_EQ(Call("", EncodableList{}), "not implemented");
  EXPECT_THAT(machine_.Logged("startup_channel_invalid_arguments"), IsEmpty());
}

TEST_F(CoreChannelTest, BreadcrumbsReachTheLogAsTheyCame) {
  const std::string longest(128, 'a');
  EXPECT_EQ(Call("startupBreadcrumb", Breadcrumb("app.start:phase-1_a", std::int32_t{-7})),
            "success");
  EXPECT_EQ(Call("startupBreadcrumb", Breadcrumb(longest, std::int64_t{5'000'000'000})), "success");
  EXPECT_THAT(machine_.Logged("dart_breadcrumb"),
              ElementsAre(json{{"name", "app.start:phase-1_a"}, {"dartMs", -7}},
                          json{{"name", longest}, {"dartMs", 5'000'000'000}}));
}

TEST_F(CoreChannelTest, UpdatesReachTheLogWithTheirThreeFieldsAlone) {
  EncodableMap update = Update(EncodableValue(), std::int64_t{1'700'000'000'000}, "ok(200).");
  update["extra"] = "not for the log";
  EXPECT_EQ(Call("startupUpdate", update), "success");
  EXPECT_EQ(Call("startupUpdate", Update(std::int32_t{3}, EncodableValue(), "")), "success");
  EXPECT_EQ(Call("startupUpdate", Update(std::int32_t{3}, std::int32_t{4}, EncodableValue())),
            "success");
  const auto line = [](const json& attempt, const json& success, const json& result) {
    return json{{"update",
                 {{"last_attempt_at", attempt},
                  {"last_successful_check_at", success},
                  {"last_result", result}}}};
  };
  EXPECT_THAT(machine_.Logged("update_result"),
              ElementsAre(line(nullptr, 1'700'000'000'000, "ok(200)."), line(3, nullptr, ""),
                          line(3, 4, nullptr)));
}

TEST_F(CoreChannelTest, TheFirstThingWrongIsTheReasonOfTheRefusal) {
  const EncodableValue null;
  const EncodableValue one(std::int32_t{1});
  const std::string too_long(129, 'a');
  const struct {
    const char* method;
    EncodableValue arguments;
    std::string reason;
  } rows[] = {
      {"startupBreadcrumb", null, "arguments_not_map"},
      {"startupBreadcrumb", EncodableList{}, "arguments_not_map"},
      {"startupBreadcrumb", EncodableMap{}, "breadcrumb_fields_missing"},
      {"startupBreadcrumb", EncodableMap{{"name", "bad name"}}, "breadcrumb_fields_missing"},
      {"startupBreadcrumb", EncodableMap{{"dartMs", one}}, "breadcrumb_fields_missing"},
      {"startupBreadcrumb", Breadcrumb("", one), "breadcrumb_name_invalid"},
      {"startupBreadcrumb", Breadcrumb(too_long, one), "breadcrumb_name_invalid"},
      {"startupBreadcrumb", Breadcrumb("a b", 1.0), "breadcrumb_name_invalid"},
      {"startupBreadcrumb", Breadcrumb("a(b)", one), "breadcrumb_name_invalid"},
      {"startupBreadcrumb", Breadcrumb(std::string("a\0b", 3), one), "breadcrumb_name_invalid"},
      {"startupBreadcrumb", Breadcrumb(one, one), "breadcrumb_name_invalid"},
      {"startupBreadcrumb", Breadcrumb("a", 1.0), "breadcrumb_time_invalid"},
      {"startupBreadcrumb", Breadcrumb("a", null), "breadcrumb_time_invalid"},
      {"startupUpdate", EncodableList{}, "arguments_not_map"},
      {"startupUpdate", EncodableMap{}, "update_field_missing_last_attempt_at"},
      {"startupUpdate", EncodableMap{{"last_attempt_at", null}, {"last_result", "a b"}},
       "update_field_missing_last_successful_check_at"},
      {"startupUpdate", EncodableMap{{"last_attempt_at", null}, {"last_successful_check_at", null}},
       "update_field_missing_last_result"},
      {"startupUpdate", EncodableMap{{"last_attempt_at", "soon"}},
       "update_timestamp_invalid_last_attempt_at"},
      {"startupUpdate", Update(null, 1.5, "a b"),
       "update_timestamp_invalid_last_successful_check_at"},
      {"startupUpdate", Update(null, null, "ok (200)"), "update_result_invalid"},
      {"startupUpdate", Update(null, null, "a:b"), "update_result_invalid"},
      {"startupUpdate", Update(null, null, "a-b"), "update_result_invalid"},
      {"startupUpdate", Update(null, null, too_long), "update_result_invalid"},
      {"startupUpdate", Update(null, null, one), "update_result_invalid"},
  };
  const EncodableMap before = StartupRecorder::instance().Snapshot();
  std::vector<json> reasons;
  for (const auto& row : rows) {
    EXPECT_EQ(Call(row.method, row.arguments), "error: STARTUP_INVALID_ARGUMENTS, " + row.reason);
    reasons.push_back({{"reason", row.reason}});
  }
  EXPECT_EQ(machine_.Logged("startup_channel_invalid_arguments"), reasons);
  EXPECT_THAT(machine_.Logged("dart_breadcrumb"), IsEmpty());
  EXPECT_EQ(StartupRecorder::instance().Snapshot(), before);
}

// Libraries in which the engine's version can't be read for want of something of our own.
class ThrowingLibraries : public test::FakeDynamicLibraries {
 public:
  using FakeDynamicLibraries::FakeDynamicLibraries;
  bool CallGuarded(void (*)(void*), void*) override { throw std::runtime_error("no \xFF memory"); }
};

TEST_F(CoreChannelTest, TheVersionIsAnsweredWhateverItIs) {
  EXPECT_EQ(Call("getCoreVersion", EncodableList{}), "success sing-box DLL not loaded");

  vpn_state().engine.singbox_get_version = [] { return static_cast<char*>(nullptr); };
  EXPECT_EQ(Call("getCoreVersion"), "success Unknown");

  ThrowingLibraries libraries(machine_.journal);
  platform::Os os = platform::os();
  os.dynamic_libraries = &libraries;
  const platform::ScopedOs scope(os);
  EXPECT_EQ(Call("getCoreVersion"), "error: CORE_VERSION_ERROR, no \xC3\xBF memory");
}

}  // namespace
}  // namespace korvane
