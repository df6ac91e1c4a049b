#include "flutter_boundary/standard_method_codec.h"

#include <utility>

#include "flutter_boundary/byte_streams.h"
#include "flutter_boundary/standard_codec_serializer.h"
#include "platform/no_destructor.h"
#include "platform/os.h"

namespace flutter {

namespace {

constexpr std::uint8_t kSuccessEnvelope = 0;
constexpr std::uint8_t kErrorEnvelope = 1;

EncodableValue Read(ByteStreamReader& stream) {
  return StandardCodecSerializer::GetInstance().ReadValue(stream);
}

void Write(const EncodableValue& value, ByteStreamWriter& stream) {
  StandardCodecSerializer::GetInstance().WriteValue(value, stream);
}

void WriteOrNull(const EncodableValue* value, ByteStreamWriter& stream) {
  const EncodableValue null;
  Write(value != nullptr ? *value : null, stream);
}

bool DecodeSuccess(ByteStreamReader& stream, MethodResult<EncodableValue>& result) {
  const EncodableValue value = Read(stream);
  if (stream.failed()) {
    return false;
  }
  result.Success(value);
  return true;
}

bool DecodeError(ByteStreamReader& stream, MethodResult<EncodableValue>& result) {
  const EncodableValue code = Read(stream);
  const EncodableValue message = Read(stream);
  const EncodableValue details = Read(stream);
  const auto* code_text = code.GetIf<std::string>();
  const auto* message_text = message.GetIf<std::string>();
  if (stream.failed() || code_text == nullptr || (message_text == nullptr && !message.IsNull())) {
    return false;
  }
  const std::string text = message_text != nullptr ? *message_text : "";
  if (details.IsNull()) {
    result.Error(*code_text, text);
  } else {
    result.Error(*code_text, text, details);
  }
  return true;
}

}  // namespace

const StandardMethodCodec& StandardMethodCodec::GetInstance() {
  static korvane::NoDestructor<StandardMethodCodec> codec;
  return *codec;
}

std::optional<MethodCall<EncodableValue>> StandardMethodCodec::DecodeMethodCall(
    std::span<const std::uint8_t> message) const {
  ByteBufferStreamReader stream(message);
  EncodableValue name = Read(stream);
  auto* name_text = name.GetIf<std::string>();
  if (name_text == nullptr) {
    korvane::platform::WriteErrorLine("Invalid method call; method name is not a string.");
    return std::nullopt;
  }
  EncodableValue arguments = Read(stream);
  if (stream.failed()) {
    return std::nullopt;
  }
  return MethodCall<EncodableValue>(std::move(*name_text), std::move(arguments));
}

std::vector<std::uint8_t> StandardMethodCodec::EncodeMethodCall(
    const MethodCall<EncodableValue>& call) const {
  ByteBufferStreamWriter stream;
  Write(EncodableValue(call.method_name()), stream);
  Write(call.arguments(), stream);
  return stream.Take();
}

std::vector<std::uint8_t> StandardMethodCodec::EncodeSuccessEnvelope(
    const EncodableValue* result) const {
  ByteBufferStreamWriter stream;
  stream.WriteNumber(kSuccessEnvelope);
  WriteOrNull(result, stream);
  return stream.Take();
}

std::vector<std::uint8_t> StandardMethodCodec::EncodeErrorEnvelope(
    const std::string& code, const std::string& message, const EncodableValue* details) const {
  ByteBufferStreamWriter stream;
  stream.WriteNumber(kErrorEnvelope);
  Write(EncodableValue(code), stream);
  Write(message.empty() ? EncodableValue() : EncodableValue(message), stream);
  WriteOrNull(details, stream);
  return stream.Take();
}

bool StandardMethodCodec::DecodeEnvelope(std::span<const std::uint8_t> reply,
                                         MethodResult<EncodableValue>& result) const {
  if (reply.empty()) {
    result.NotImplemented();
    return true;
  }
  ByteBufferStreamReader stream(reply);
  switch (stream.ReadNumber<std::uint8_t>()) {
    case kSuccessEnvelope:
      return DecodeSuccess(stream, result);
    case kErrorEnvelope:
      return DecodeError(stream, result);
    default:
      return false;
  }
}

}  // namespace flutter
