// standard_method_codec.h: the published standard method codec, the one codec of this system.
//
// A method call is its name as a string value and then its arguments as one value. An envelope is
// one byte and then values: 0 and the result, or 1 and code, message, details. A call or an
// envelope that is cut anywhere is none, rather than one with invented zeros; bytes behind a
// complete one are ignored. Any thread.
//
// To the error stream: "Invalid method call; method name is not a string.", and what
// StandardCodecSerializer says.
#pragma once

#include "flutter_boundary/method_codec.h"

namespace flutter {

class StandardMethodCodec : public MethodCodec<EncodableValue> {
 public:
  // The singleton over the standard serializer: made on first use, never destroyed.
  static const StandardMethodCodec& GetInstance();

  std::optional<MethodCall<EncodableValue>> DecodeMethodCall(
      std::span<const std::uint8_t> message) const override;
  std::vector<std::uint8_t> EncodeMethodCall(const MethodCall<EncodableValue>& call) const override;
  std::vector<std::uint8_t> EncodeSuccessEnvelope(const EncodableValue* result) const override;
  std::vector<std::uint8_t> EncodeErrorEnvelope(const std::string& code, const std::string& message,
                                                const EncodableValue* details) const override;
  bool DecodeEnvelope(std::span<const std::uint8_t> reply,
                      MethodResult<EncodableValue>& result) const override;
};

}  // namespace flutter
