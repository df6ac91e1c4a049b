#include "flutter_boundary/event_channel.h"

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
using Error = StreamHandlerError<>;

constexpr char kChannel[] = "korvane/events";
constexpr char kNoActiveStream[] =
    "01 07 05 65 72 72 6f 72 07 1a 4e 6f 20 61 63 74 69 76 65 20 73 74 72 65 61 6d 20 74 6f 20 63 "
    "61 6e 63 65 6c 00";

// What the channel asked of its handler, and what the handler answers; outlives the handler.
struct Listening {
  std::vector<std::string> calls;
  std::unique_ptr<EventSink<>> sink;
  std::optional<Error> listen_error;
  std::optional<Error> cancel_error;
};

class NotingHandler : public StreamHandler<> {
 public:
  explicit NotingHandler(Listening* listening) : listening_(listening) {}
  ~NotingHandler() override { listening_->calls.push_back("gone"); }

 protected:
  std::optional<Error> OnListenInternal(const EncodableValue* arguments,
                                        std::unique_ptr<EventSink<>> sink) override {
    listening_->calls.push_back("listen " + Text(arguments));
    listening_->sink = std::move(sink);
    return listening_->listen_error;
  }
  std::optional<Error> OnCancelInternal(const EncodableValue* arguments) override {
    listening_->calls.push_back("cancel " + Text(arguments));
    return listening_->cancel_error;
  }

 private:
  static std::string Text(const EncodableValue* arguments) {
    if (arguments == nullptr) {
      return "without";
    }
    const auto* text = arguments->GetIf<std::string>();
    return text != nullptr ? *text : "null";
  }

  Listening* listening_;
};

class EventChannelTest : public BoundaryTest {
 protected:
  void SetUp() override { channel_.SetStreamHandler(std::make_unique<NotingHandler>(&listening_)); }
  void TearDown() override {
    EXPECT_THAT(fake::Faults(), IsEmpty());
    EXPECT_EQ(fake::MessengerReferences(), 0);
  }

  Bytes Call(const std::string& method, const EncodableValue& arguments = {}) {
    const int delivery =
        fake::DeliverMessage(kChannel, codec_.EncodeMethodCall(MethodCall<>(method, arguments)));
    return fake::ReplyOf(delivery)->bytes;
  }

  const StandardMethodCodec& codec_ = StandardMethodCodec::GetInstance();
  BinaryMessengerImpl messenger_{fake::messenger()};
  Listening listening_;
  EventChannel<> channel_{&messenger_, kChannel, &codec_};
};

TEST_F(EventChannelTest, ListensAndCancelsWithTheCallsArgumentsAndASecondListenWithoutAny) {
  EXPECT_EQ(Call("listen", "a"), Hex("00 00"));
  EXPECT_EQ(Call("listen"), Hex("00 00"));
  EXPECT_EQ(Call("cancel", "b"), Hex("00 00"));
  EXPECT_THAT(listening_.calls,
              ElementsAre("listen a", "cancel without", "listen null", "cancel b"));
  EXPECT_THAT(errors_.lines(), IsEmpty());
}

TEST_F(EventChannelTest, FailedCancelOfTheFirstIsToldAndTheSecondBegins) {
  const struct {
    std::optional<EncodableValue> details;
    const char* text;
  } rows[] = {{std::nullopt, "null"}, {"why", "why"},   {7, "7"},
              {true, "true"},         {false, "false"}, {EncodableList{1}, "(list)"}};
  Call("listen");
  for (const auto& row : rows) {
    errors_.Clear();
    listening_.cancel_error = Error{"C", "m", row.details};
    EXPECT_EQ(Call("listen"), Hex("00 00"));
    EXPECT_THAT(errors_.lines(),
                ElementsAre(std::string("Failed to cancel existing stream: C, m, ") + row.text));
  }
}

TEST_F(EventChannelTest, CancelWithoutAStreamIsAnError) {
  EXPECT_EQ(Call("cancel"), Hex(kNoActiveStream));
  Call("listen");
  Call("cancel");
  EXPECT_EQ(Call("cancel"), Hex(kNoActiveStream));
  EXPECT_THAT(listening_.calls, ElementsAre("listen null", "cancel null"));
}

TEST_F(EventChannelTest, FailedListenIsRepliedAndStillListens) {
  listening_.listen_error = Error{"X", "", std::nullopt};
  EXPECT_EQ(Call("listen"), Hex("01 07 01 58 00 00"));
  EXPECT_EQ(Call("cancel"), Hex("00 00"));
}

TEST_F(EventChannelTest, FailedCancelIsRepliedAndListensNoMore) {
  listening_.cancel_error = Error{"X", "m", EncodableValue(true)};
  Call("listen");
  EXPECT_EQ(Call("cancel"), Hex("01 07 01 58 07 01 6d 01"));
  EXPECT_EQ(Call("cancel"), Hex(kNoActiveStream));
}

TEST_F(EventChannelTest, AnythingElseGetsTheEmptyReply) {
  EXPECT_EQ(Call("pause"), Bytes());
  EXPECT_THAT(errors_.lines(), IsEmpty());
  const int delivery = fake::DeliverMessage(kChannel, Hex("07 09 6c"));
  EXPECT_EQ(fake::ReplyOf(delivery)->bytes, Bytes());
  EXPECT_THAT(errors_.lines(),
              ElementsAre(kInvalidRead,
                          "Unable to construct method call from message on channel "
                          "korvane/events"));
  EXPECT_THAT(listening_.calls, IsEmpty());
}

TEST_F(EventChannelTest, EventsGoOutOnTheChannelsNameFromAnyThread) {
  Call("listen");
  std::thread([&] { listening_.sink->Success(EncodableMap{{"status", "up"}}); }).join();
  listening_.sink->Success();
  listening_.sink->Error("X", "m", true);
  listening_.sink->Error("X");
  listening_.sink->EndOfStream();
  std::vector<Bytes> messages;
  for (const auto& sent : fake::Sent()) {
    EXPECT_EQ(sent.channel, kChannel);
    EXPECT_FALSE(sent.awaits_reply);
    messages.push_back(sent.message);
  }
  EXPECT_THAT(messages,
              ElementsAre(Hex("00 0d 01 07 06 73 74 61 74 75 73 07 02 75 70"), Hex("00 00"),
                          Hex("01 07 01 58 07 01 6d 01"), Hex("01 07 01 58 00 00"), Bytes()));
}

TEST_F(EventChannelTest, NewHandlerStartsWithNobodyListening) {
  Call("listen");
  channel_.SetStreamHandler(std::make_unique<NotingHandler>(&listening_));
  EXPECT_EQ(Call("cancel"), Hex(kNoActiveStream));
  EXPECT_THAT(listening_.calls, ElementsAre("listen null", "gone"));
  channel_.SetStreamHandler(nullptr);
  EXPECT_FALSE(fake::HasReceiver(kChannel));
}

TEST_F(EventChannelTest, ChannelThatIsGoneTookItsHandlerAlong) {
  {
    EventChannel<> channel(&messenger_, kChannel, &codec_);
    channel.SetStreamHandler(std::make_unique<NotingHandler>(&listening_));
  }
  EXPECT_THAT(listening_.calls, ElementsAre("gone"));
  EXPECT_EQ(Call("listen"), Bytes());
}

}  // namespace
}  // namespace flutter
