// method_channel.h: a named channel of method calls, from Dart and towards it.
//
// The owner keeps the channel for as long as it wants calls: once it is gone, calls that still
// arrive get the empty reply. The destructor doesn't touch the messenger, which may be gone by
// then. Window's thread; the result that a handler is given may be answered on any.
//
// To the error stream: "Unable to construct method call from message on channel " and the name, for
// a message that is no call (it gets the empty reply); and what EngineMethodResult says.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "flutter_boundary/binary_messenger.h"
#include "flutter_boundary/channel_reports.h"
#include "flutter_boundary/encodable_value.h"
#include "flutter_boundary/engine_method_result.h"
#include "flutter_boundary/method_call.h"
#include "flutter_boundary/method_codec.h"
#include "flutter_boundary/method_result.h"

namespace flutter {

// Takes a call and owns its result.
template <typename T = EncodableValue>
using MethodCallHandler =
    std::function<void(const MethodCall<T>& call, std::unique_ptr<MethodResult<T>> result)>;

template <typename T = EncodableValue>
class MethodChannel {
 public:
  // Neither the messenger nor the codec is owned; neither may be null.
  MethodChannel(BinaryMessenger* messenger, std::string name, const MethodCodec<T>* codec)
      : messenger_(messenger), name_(std::move(name)), codec_(codec) {}
  MethodChannel(const MethodChannel&) = delete;
  MethodChannel& operator=(const MethodChannel&) = delete;

  // Calls a method on the Dart side; the answer, if any, is of no interest.
  void InvokeMethod(const std::string& method, T arguments = T()) const {
    messenger_->Send(name_, codec_->EncodeMethodCall(MethodCall<T>(method, std::move(arguments))));
  }

  // Calls a method on the Dart side. `result` is answered on the window's thread, with the error
  // code "error" when the reply can't be read; it is destroyed unanswered when no reply will come.
  void InvokeMethod(const std::string& method, T arguments,
                    std::unique_ptr<MethodResult<T>> result) const {
    const std::shared_ptr<MethodResult<T>> shared = std::move(result);
    messenger_->SendWithReply(name_,
                              codec_->EncodeMethodCall(MethodCall<T>(method, std::move(arguments))),
                              [shared, codec = codec_](MessageBytes reply) {
                                if (!codec->DecodeEnvelope(reply, *shared)) {
                                  shared->Error("error", "The reply is not an envelope");
                                }
                              });
  }

  // Registers the receiver of calls in place of the one before; an empty function removes it.
  void SetMethodCallHandler(MethodCallHandler<T> handler) {
    if (!handler) {
      handler_.reset();
      messenger_->SetMessageHandler(name_, nullptr);
      return;
    }
    handler_ = std::make_shared<const MethodCallHandler<T>>(std::move(handler));
    messenger_->SetMessageHandler(name_, [handler = std::weak_ptr(handler_), name = name_,
                                          codec = codec_](MessageBytes message, BinaryReply reply) {
      Deliver(handler.lock().get(), name, *codec, message, std::move(reply));
    });
  }

 private:
  static void Deliver(const MethodCallHandler<T>* handler, const std::string& name,
                      const MethodCodec<T>& codec, MessageBytes message, BinaryReply reply) {
    if (handler == nullptr) {
      reply({});
      return;
    }
    const std::optional<MethodCall<T>> call = codec.DecodeMethodCall(message);
    if (!call) {
      ReportUndecodableCall(name);
      reply({});
      return;
    }
    (*handler)(*call, std::make_unique<EngineMethodResult<T>>(std::move(reply), &codec));
  }

  BinaryMessenger* messenger_;
  std::string name_;
  const MethodCodec<T>* codec_;
  // Shared with the messenger only weakly, so that it goes with the channel.
  std::shared_ptr<const MethodCallHandler<T>> handler_;
};

}  // namespace flutter
