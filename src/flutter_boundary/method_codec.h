// method_codec.h: how method calls and their answers become bytes.
//
// Codecs hold no state of a message and serve any thread. Each vector is one whole message.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "flutter_boundary/encodable_value.h"
#include "flutter_boundary/method_call.h"
#include "flutter_boundary/method_result.h"

namespace flutter {

template <typename T = EncodableValue>
class MethodCodec {
 public:
  MethodCodec() = default;
  virtual ~MethodCodec() = default;
  MethodCodec(const MethodCodec&) = delete;
  MethodCodec& operator=(const MethodCodec&) = delete;

  // The call that a message holds, or nothing when it holds none.
  virtual std::optional<MethodCall<T>> DecodeMethodCall(
      std::span<const std::uint8_t> message) const = 0;

  virtual std::vector<std::uint8_t> EncodeMethodCall(const MethodCall<T>& call) const = 0;

  // A null result is the null value.
  virtual std::vector<std::uint8_t> EncodeSuccessEnvelope(const T* result) const = 0;

  // An empty message goes out as the null value, and so do null details.
  virtual std::vector<std::uint8_t> EncodeErrorEnvelope(const std::string& code,
                                                        const std::string& message,
                                                        const T* details) const = 0;

  // Reads a reply and answers `result` with it; an empty reply is NotImplemented. False, with
  // `result` unanswered, when the bytes are no envelope.
  virtual bool DecodeEnvelope(std::span<const std::uint8_t> reply,
                              MethodResult<T>& result) const = 0;
};

}  // namespace flutter
