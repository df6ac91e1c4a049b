// Arbitrary bytes as a message from Dart: whatever is read from them can be written, and reads the
// same again. The first byte chooses between a bare value, a method call and a reply.
#include <algorithm>
#include <cmath>
#include <span>

#include "flutter_boundary/byte_streams.h"
#include "flutter_boundary/standard_codec_serializer.h"
#include "flutter_boundary/standard_method_codec.h"
#include "platform/os.h"
#include "require.h"
#include "silent_error_stream.h"

namespace {

using korvane::fuzz::Require;

using flutter::EncodableValue;

// A NaN equals nothing, not even itself; values that hold one can't be compared.
struct HoldsNan {
  bool operator()(double number) const { return std::isnan(number); }
  bool operator()(const std::vector<double>& list) const {
    return std::any_of(list.begin(), list.end(), [](double number) { return std::isnan(number); });
  }
  bool operator()(const std::vector<float>& list) const {
    return std::any_of(list.begin(), list.end(), [](float number) { return std::isnan(number); });
  }
  bool operator()(const flutter::EncodableList& list) const {
    return std::any_of(list.begin(), list.end(), *this);
  }
  bool operator()(const flutter::EncodableMap& map) const {
    return std::any_of(map.begin(), map.end(), [this](const auto& pair) {
      return (*this)(pair.first) || (*this)(pair.second);
    });
  }
  bool operator()(const EncodableValue& value) const { return std::visit(*this, value.content()); }
  template <typename T>
  bool operator()(const T&) const {
    return false;
  }
};

void CheckRoundTrip(const EncodableValue& value) {
  flutter::ByteBufferStreamWriter writer;
  flutter::StandardCodecSerializer::GetInstance().WriteValue(value, writer);
  const std::vector<std::uint8_t> bytes = writer.Take();
  flutter::ByteBufferStreamReader reader(bytes);
  const EncodableValue again = flutter::StandardCodecSerializer::GetInstance().ReadValue(reader);
  Require(!reader.failed());
  Require(again == value || HoldsNan()(value));
}

class CheckedResult : public flutter::MethodResult<> {
 protected:
  void SuccessInternal(const EncodableValue* result) override { CheckRoundTrip(*result); }
  void ErrorInternal(const std::string&, const std::string&,
                     const EncodableValue* details) override {
    if (details != nullptr) {
      CheckRoundTrip(*details);
    }
  }
  void NotImplementedInternal() override {}
};

void ReadMessage(std::span<const std::uint8_t> input) {
  const auto& codec = flutter::StandardMethodCodec::GetInstance();
  const std::span<const std::uint8_t> message = input.subspan(1);
  switch (input.front() % 3) {
    case 0: {
      flutter::ByteBufferStreamReader reader(message);
      CheckRoundTrip(flutter::StandardCodecSerializer::GetInstance().ReadValue(reader));
      return;
    }
    case 1:
      if (const auto call = codec.DecodeMethodCall(message)) {
        CheckRoundTrip(call->arguments());
        const auto again = codec.DecodeMethodCall(codec.EncodeMethodCall(*call));
        Require(again && again->method_name() == call->method_name());
      }
      return;
    default: {
      CheckedResult result;
      codec.DecodeEnvelope(message, result);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  korvane::fuzz::SilentErrorStream silent;
  korvane::platform::Os os = korvane::platform::RealOs();
  os.error_stream = &silent;
  const korvane::platform::ScopedOs scope(os);
  if (size > 0) {
    ReadMessage({data, size});
  }
  return 0;
}
