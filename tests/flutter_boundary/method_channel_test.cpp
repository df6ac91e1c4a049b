#include "flutter_boundary/method_channel.h"

#include <thread>

#include "boundary_test.h"
#include "flutter_boundary/binary_messenger_impl.h"
#include "flutter_boundary/standard_method_codec.h"
#include "gmock/gmock.h"
#include "support/flutter/fake_flutter_library.h"

namespace flutter {
namespace {

namespace fake = korvane::test::fake_flutter;
using testing::ElementsAre;
using testing::IsEmpty;
using Result = std::unique_ptr<MethodResult<>>;

constexpr char kChannel[] = "korvane/test";
constexpr char kDuplicateResult[] =
    "Error: Only one of Success, Error, or NotImplemented can be called, and it can be called "
    "exactly once. Ignoring duplicate result.";
constexpr char kUnanswered[] = "Warning: Failed to respond to a message. This is a memory leak.";
constexpr char kUndecodable[] =
    "Unable to construct method call from message on channel korvane/test";

class MethodChannelTest : public BoundaryTest {
 protected:
  void TearDown() override {
    EXPECT_THAT(fake::Faults(), IsEmpty());
    EXPECT_EQ(fake::MessengerReferences(), 0);
  }

  int Call(const std::string& method, const EncodableValue& arguments = {}) {
    return fake::DeliverMessage(kChannel, codec_.EncodeMethodCall(MethodCall<>(method, arguments)));
  }
  static std::optional<Bytes> ReplyBytes(int delivery) {
    const auto reply = fake::ReplyOf(delivery);
    return reply ? std::optional(reply->bytes) : std::nullopt;
  }

  Bytes Success(const EncodableValue& value) const { return codec_.EncodeSuccessEnvelope(&value); }

  const StandardMethodCodec& codec_ = StandardMethodCodec::GetInstance();
  BinaryMessengerImpl messenger_{fake::messenger()};
  MethodChannel<> channel_{&messenger_, kChannel, &codec_};
};

TEST_F(MethodChannelTest, EachKindOfAnswerHasItsBytes) {
  const struct {
    std::function<void(MethodResult<>&)> answer;
    const char* bytes;
  } rows[] = {
      {[](auto& result) { result.Success(); }, "00 00"},
      {[](auto& result) { result.Success(true); }, "00 01"},
      {[](auto& result) { result.Error("X"); }, "01 07 01 58 00 00"},
      {[](auto& result) { result.Error("X", "m"); }, "01 07 01 58 07 01 6d 00"},
      {[](auto& result) { result.Error("X", "", 7); }, "01 07 01 58 00 03 07 00 00 00"},
      {[](auto& result) { result.NotImplemented(); }, ""},
  };
  for (const auto& row : rows) {
    channel_.SetMethodCallHandler([&](const MethodCall<>& call, Result result) {
      EXPECT_EQ(call.method_name(), "load");
      EXPECT_EQ(call.arguments(), EncodableValue("text"));
      row.answer(*result);
    });
    EXPECT_EQ(ReplyBytes(Call("load", "text")), Hex(row.bytes)) << row.bytes;
  }
  EXPECT_THAT(errors_.lines(), IsEmpty());
}

TEST_F(MethodChannelTest, SecondAnswerSendsNothingAndSaysSo) {
  const std::function<void(MethodResult<>&)> answers[] = {
      [](auto& result) { result.Success(1); },
      [](auto& result) { result.Error("X"); },
      [](auto& result) { result.NotImplemented(); },
  };
  for (const auto& second : answers) {
    channel_.SetMethodCallHandler([&](const MethodCall<>&, Result result) {
      result->Error("FIRST");
      second(*result);
    });
    errors_.Clear();
    EXPECT_EQ(ReplyBytes(Call("m")), codec_.EncodeErrorEnvelope("FIRST", "", nullptr));
    EXPECT_THAT(errors_.lines(), ElementsAre(kDuplicateResult));
  }
}

TEST_F(MethodChannelTest, UnansweredResultWarnsAndLeavesTheFutureOpen) {
  channel_.SetMethodCallHandler([](const MethodCall<>&, Result) {});
  EXPECT_EQ(ReplyBytes(Call("m")), std::nullopt);
  EXPECT_THAT(errors_.lines(), ElementsAre(kUnanswered));
}

TEST_F(MethodChannelTest, ExceptionOfAHandlerEndsAtTheBoundary) {
  channel_.SetMethodCallHandler([](const MethodCall<>& call, Result result) {
    if (call.method_name() == "throw") {
      throw std::runtime_error("handler");
    }
    result->Success();
  });
  EXPECT_EQ(ReplyBytes(Call("throw")), std::nullopt);
  EXPECT_THAT(errors_.lines(), ElementsAre(kUnanswered));
  EXPECT_EQ(ReplyBytes(Call("next")), Hex("00 00"));
}

TEST_F(MethodChannelTest, MessageThatIsNoCallGetsTheEmptyReply) {
  channel_.SetMethodCallHandler([](const MethodCall<>&, Result) { FAIL(); });
  const struct {
    const char* bytes;
    Lines lines;
  } rows[] = {
      {"07 09 69 73", {kInvalidRead, kUndecodable}},  // cut in the name
      {"07 01 6d 07 05 61", {kInvalidRead, kUndecodable}},
      {"03 05 00 00 00 00", {kNameIsNoString, kUndecodable}},
      {"", {kInvalidRead, kNameIsNoString, kUndecodable}},
  };
  for (const auto& row : rows) {
    errors_.Clear();
    EXPECT_EQ(ReplyBytes(fake::DeliverMessage(kChannel, Hex(row.bytes))), Bytes()) << row.bytes;
    EXPECT_EQ(errors_.lines(), row.lines) << row.bytes;
  }
}

TEST_F(MethodChannelTest, WithoutAHandlerTheMessengerHasNoReceiver) {
  channel_.SetMethodCallHandler([](const MethodCall<>&, Result result) { result->Success(); });
  EXPECT_TRUE(fake::HasReceiver(kChannel));
  channel_.SetMethodCallHandler(nullptr);
  EXPECT_FALSE(fake::HasReceiver(kChannel));
}

TEST_F(MethodChannelTest, HandlerMayReplaceItself) {
  channel_.SetMethodCallHandler(
      [this, own = std::string("first")](const MethodCall<>&, Result result) {
        channel_.SetMethodCallHandler(
            [](const MethodCall<>&, Result later) { later->Success("second"); });
        result->Success(own);  // still alive
      });
  EXPECT_EQ(ReplyBytes(Call("m")), Success("first"));
  EXPECT_EQ(ReplyBytes(Call("m")), Success("second"));
}

TEST_F(MethodChannelTest, ChannelThatIsGoneTakesNoCallsAndLeavesTheMessengerAlone) {
  auto channel = std::make_unique<MethodChannel<>>(&messenger_, kChannel, &codec_);
  channel->SetMethodCallHandler([](const MethodCall<>&, Result) { FAIL(); });
  channel.reset();
  EXPECT_TRUE(fake::HasReceiver(kChannel));
  EXPECT_EQ(ReplyBytes(Call("m")), Bytes());
}

TEST_F(MethodChannelTest, AnswerAfterTheEndOfTheEngineIsDroppedInSilence) {
  Result kept;
  channel_.SetMethodCallHandler(
      [&](const MethodCall<>&, Result result) { kept = std::move(result); });
  const int delivery = Call("m");
  EXPECT_EQ(fake::MessengerReferences(), 1);
  fake::DestroyEngine();
  std::thread([&] { kept->Success(true); }).join();
  EXPECT_EQ(fake::ReplyOf(delivery), std::nullopt);
  EXPECT_EQ(fake::MessengerReferences(), 0);
  kept.reset();
  EXPECT_THAT(errors_.lines(), IsEmpty());
}

TEST_F(MethodChannelTest, CallsTowardsDartWantNoReplyUnlessAResultIsGiven) {
  channel_.InvokeMethod("onState", "up");
  channel_.InvokeMethod("tick");
  const auto sent = fake::Sent();
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_EQ(sent[0].channel, kChannel);
  EXPECT_EQ(sent[0].message, codec_.EncodeMethodCall(MethodCall<>("onState", "up")));
  EXPECT_EQ(sent[1].message, codec_.EncodeMethodCall(MethodCall<>("tick")));
  EXPECT_FALSE(sent[0].awaits_reply || sent[1].awaits_reply);
}

TEST_F(MethodChannelTest, ReplyOfDartReachesTheResult) {
  const struct {
    const char* reply;
    EncodableList notes;
  } rows[] = {
      {"00 07 01 61", {"success", "a", "gone"}},
      {"01 07 01 58 00 01", {"error", "X", "", true, "gone"}},
      {"", {"not implemented", "gone"}},
      {"09", {"error", "error", "The reply is not an envelope", {}, "gone"}},
  };
  std::size_t place = 0;
  for (const auto& row : rows) {
    EncodableList notes;
    channel_.InvokeMethod("ask", {}, std::make_unique<NotedResult>(&notes));
    fake::ReplyToSent(place++, Hex(row.reply));
    EXPECT_EQ(notes, row.notes) << row.reply;
  }
}

TEST_F(MethodChannelTest, RefusedCallDestroysItsResultAtOnce) {
  EncodableList notes;
  fake::RefuseSends();
  channel_.InvokeMethod("ask", {}, std::make_unique<NotedResult>(&notes));
  EXPECT_EQ(notes, EncodableList{"gone"});
}

class BinaryMessengerTest : public MethodChannelTest {};

TEST_F(BinaryMessengerTest, SecondResponseOfAnyCopyIsIgnoredWithItsLine) {
  messenger_.SetMessageHandler(kChannel, [](MessageBytes message, const BinaryReply& reply) {
    const BinaryReply copy = reply;
    copy(message);
    reply({});
    copy({});
  });
  EXPECT_EQ(ReplyBytes(fake::DeliverMessage(kChannel, {1, 2})), (Bytes{1, 2}));
  constexpr char kLine[] = "Error: Response can be set only once. Ignoring duplicate response.";
  EXPECT_THAT(errors_.lines(), ElementsAre(kLine, kLine));
  EXPECT_EQ(fake::MessengerLocks(), 3);
}

TEST_F(BinaryMessengerTest, ReplyThatNobodyAwaitsGoesNowhere) {
  int received = 0;
  messenger_.SetMessageHandler(kChannel, [&](MessageBytes, const BinaryReply& reply) {
    ++received;
    EXPECT_EQ(fake::MessengerReferences(), 0);
    reply({});
    reply({});
  });
  fake::DeliverOneWay(kChannel, {1});
  EXPECT_EQ(received, 1);
  EXPECT_THAT(errors_.lines(), IsEmpty());
}

TEST_F(MethodChannelTest, AnswersOfManyThreadsRaceTheEndOfTheEngine) {
  std::vector<std::thread> workers;
  channel_.SetMethodCallHandler([&](const MethodCall<>& call, Result result) {
    workers.emplace_back(
        [arguments = call.arguments(), kept = std::move(result)] { kept->Success(arguments); });
  });
  std::vector<int> deliveries;
  deliveries.reserve(40);
  for (int i = 0; i < 40; ++i) {
    deliveries.push_back(Call("m", i));
  }
  fake::DestroyEngine();
  for (std::thread& worker : workers) {
    worker.join();
  }
  for (int i = 0; i < 40; ++i) {
    const auto reply = ReplyBytes(deliveries[static_cast<std::size_t>(i)]);
    EXPECT_TRUE(!reply || *reply == Success(i)) << i;
  }
  EXPECT_THAT(errors_.lines(), IsEmpty());
}

}  // namespace
}  // namespace flutter
