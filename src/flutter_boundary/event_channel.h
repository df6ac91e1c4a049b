// event_channel.h: a named stream of events towards Dart.
//
// Dart begins and ends a stream with the calls "listen" and "cancel"; events go the other way under
// the same name. Whether Dart listens is a flag of the registration:
//
//   listening | call     | what happens                              | listening afterwards
//   no        | "listen" | OnListen                                  | yes, also when OnListen
//   fails yes       | "listen" | OnCancel without arguments, then OnListen | yes yes       |
//   "cancel" | OnCancel                                  | no, also when OnCancel fails no        |
//   "cancel" | an error reply                            | no
//
// The owner keeps the channel for as long as it wants calls: once it is gone, its stream handler is
// too, and calls that still arrive get the empty reply. The destructor doesn't touch the messenger,
// which may be gone by then. Window's thread; for sinks see event_sink.h.
//
// To the error stream: "Unable to construct method call from message on channel " and the name, for
// a message that is no call (it gets the empty reply); "Failed to cancel existing stream: " and the
// error, when a stream that is replaced refuses its end (it is replaced all the same).
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "flutter_boundary/binary_messenger.h"
#include "flutter_boundary/channel_reports.h"
#include "flutter_boundary/encodable_value.h"
#include "flutter_boundary/event_sink.h"
#include "flutter_boundary/method_call.h"
#include "flutter_boundary/method_codec.h"
#include "flutter_boundary/stream_handler.h"

namespace flutter {

template <typename T = EncodableValue>
class EventChannel {
 public:
  // Neither the messenger nor the codec is owned; neither may be null.
  EventChannel(BinaryMessenger* messenger, std::string name, const MethodCodec<T>* codec)
      : messenger_(messenger), name_(std::move(name)), codec_(codec) {}
  EventChannel(const EventChannel&) = delete;
  EventChannel& operator=(const EventChannel&) = delete;

  // Registers a handler, with nobody listening, in place of the one before; null removes it.
  void SetStreamHandler(std::unique_ptr<StreamHandler<T>> handler) {
    if (handler == nullptr) {
      stream_.reset();
      messenger_->SetMessageHandler(name_, nullptr);
      return;
    }
    stream_ = std::make_shared<Stream>(messenger_, name_, codec_, std::move(handler));
    messenger_->SetMessageHandler(
        name_, [stream = std::weak_ptr(stream_)](MessageBytes message, BinaryReply reply) {
          if (const auto alive = stream.lock()) {
            alive->Receive(message, reply);
          } else {
            reply({});
          }
        });
  }

 private:
  // Sends each event to the channel's name; nobody waits for a reply.
  class EventSinkImplementation : public EventSink<T> {
   public:
    EventSinkImplementation(const BinaryMessenger* messenger, std::string name,
                            const MethodCodec<T>* codec)
        : messenger_(messenger), name_(std::move(name)), codec_(codec) {}

   protected:
    void SuccessInternal(const T* event) override {
      messenger_->Send(name_, codec_->EncodeSuccessEnvelope(event));
    }
    void ErrorInternal(const std::string& code, const std::string& message,
                       const T* details) override {
      messenger_->Send(name_, codec_->EncodeErrorEnvelope(code, message, details));
    }
    void EndOfStreamInternal() override { messenger_->Send(name_, {}); }

   private:
    const BinaryMessenger* messenger_;
    const std::string name_;
    const MethodCodec<T>* codec_;
  };

  // One registration: the handler, and whether Dart listens.
  class Stream {
   public:
    Stream(const BinaryMessenger* messenger, std::string name, const MethodCodec<T>* codec,
           std::unique_ptr<StreamHandler<T>> handler)
        : messenger_(messenger),
          name_(std::move(name)),
          codec_(codec),
          handler_(std::move(handler)) {}

    void Receive(MessageBytes message, const BinaryReply& reply) {
      const std::optional<MethodCall<T>> call = codec_->DecodeMethodCall(message);
      if (!call) {
        ReportUndecodableCall(name_);
        reply({});
      } else if (call->method_name() == "listen") {
        Reply(reply, Listen(call->arguments()));
      } else if (call->method_name() == "cancel") {
        Reply(reply, Cancel(call->arguments()));
      } else {
        reply({});
      }
    }

   private:
    std::optional<StreamHandlerError<T>> Listen(const T& arguments) {
      if (listening_) {
        if (const auto error = handler_->OnCancel(nullptr)) {
          ReportFailedCancel(error->error_code, error->error_message,
                             error->error_details ? &*error->error_details : nullptr);
        }
      }
      listening_ = true;
      return handler_->OnListen(
          &arguments, std::make_unique<EventSinkImplementation>(messenger_, name_, codec_));
    }

    std::optional<StreamHandlerError<T>> Cancel(const T& arguments) {
      if (!listening_) {
        return StreamHandlerError<T>{"error", "No active stream to cancel", std::nullopt};
      }
      const auto error = handler_->OnCancel(&arguments);
      listening_ = false;
      return error;
    }

    void Reply(const BinaryReply& reply, const std::optional<StreamHandlerError<T>>& error) const {
      if (!error) {
        reply(codec_->EncodeSuccessEnvelope(nullptr));
        return;
      }
      reply(codec_->EncodeErrorEnvelope(error->error_code, error->error_message,
                                        error->error_details ? &*error->error_details : nullptr));
    }

    const BinaryMessenger* messenger_;
    const std::string name_;
    const MethodCodec<T>* codec_;
    const std::unique_ptr<StreamHandler<T>> handler_;
    bool listening_ = false;
  };

  BinaryMessenger* messenger_;
  std::string name_;
  const MethodCodec<T>* codec_;
  // Shared with the messenger only weakly, so that it goes with the channel.
  std::shared_ptr<Stream> stream_;
};

}  // namespace flutter
