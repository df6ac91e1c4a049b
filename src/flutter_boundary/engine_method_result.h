// engine_method_result.h: the method result that replies through the messenger.
//
// To the error stream: the line about a second answer, of which nothing is sent; and the line about
// a result that is destroyed unanswered, whose reply function is then dropped and whose future on
// the Dart side stays open. Nothing is written when the engine is gone: the answer is dropped in
// silence.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "flutter_boundary/binary_messenger.h"
#include "flutter_boundary/encodable_value.h"
#include "flutter_boundary/method_codec.h"
#include "flutter_boundary/method_result.h"

namespace flutter {

// Owns the reply function of one message and gives it up at its first use.
class ReplyManager {
 public:
  explicit ReplyManager(BinaryReply reply) : reply_(std::move(reply)) {}
  ~ReplyManager();
  ReplyManager(const ReplyManager&) = delete;
  ReplyManager& operator=(const ReplyManager&) = delete;

  void Send(MessageBytes reply);

 private:
  BinaryReply reply_;
};

template <typename T = EncodableValue>
class EngineMethodResult : public MethodResult<T> {
 public:
  // The codec is not owned and outlives the result.
  EngineMethodResult(BinaryReply reply, const MethodCodec<T>* codec)
      : reply_manager_(std::move(reply)), codec_(codec) {}

 protected:
  void SuccessInternal(const T* result) override {
    reply_manager_.Send(codec_->EncodeSuccessEnvelope(result));
  }
  void ErrorInternal(const std::string& code, const std::string& message,
                     const T* details) override {
    reply_manager_.Send(codec_->EncodeErrorEnvelope(code, message, details));
  }
  void NotImplementedInternal() override { reply_manager_.Send({}); }

 private:
  ReplyManager reply_manager_;
  const MethodCodec<T>* codec_;
};

}  // namespace flutter
