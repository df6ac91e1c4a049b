// boundary_test.h: what the tests of this room share: bytes from hexadecimal text, and a fixture
// that keeps the error stream's lines.
#pragma once

#include <cstdint>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "flutter_boundary/byte_streams.h"
#include "flutter_boundary/encodable_value.h"
#include "flutter_boundary/method_result.h"
#include "flutter_boundary/standard_codec_serializer.h"
#include "gtest/gtest.h"
#include "platform/os.h"
#include "support/recording_error_stream.h"

namespace flutter {

using Bytes = std::vector<std::uint8_t>;
using Lines = std::vector<std::string>;

inline constexpr char kInvalidRead[] = "Invalid read in StandardCodecByteStreamReader";
inline constexpr char kNameIsNoString[] = "Invalid method call; method name is not a string.";

inline std::string UnknownType(int type) {
  return "Unknown type in StandardCodecSerializer::ReadValueOfType: " + std::to_string(type) +
         "Custom types require codec extensions.";
}

// Two digits a byte; blanks and brackets (around padding) are for the eye.
inline Bytes Hex(std::string_view text) {
  Bytes bytes;
  std::string digits;
  for (const char c : text) {
    if (c == ' ' || c == '[' || c == ']') {
      continue;
    }
    digits += c;
    if (digits.size() == 2) {
      bytes.push_back(static_cast<std::uint8_t>(std::stoi(digits, nullptr, 16)));
      digits.clear();
    }
  }
  if (!digits.empty()) {
    throw std::invalid_argument("odd number of digits");
  }
  return bytes;
}

inline EncodableValue DecodeValue(const Bytes& bytes) {
  ByteBufferStreamReader stream(bytes);
  return StandardCodecSerializer::GetInstance().ReadValue(stream);
}

inline Bytes EncodeValue(const EncodableValue& value) {
  ByteBufferStreamWriter stream;
  StandardCodecSerializer::GetInstance().WriteValue(value, stream);
  return stream.Take();
}

// How a failed expectation shows a value: its bytes.
inline void PrintTo(const EncodableValue& value, std::ostream* out) {
  *out << testing::PrintToString(EncodeValue(value));
}

// Notes its answer, and its end, in a list that outlives it.
class NotedResult : public MethodResult<> {
 public:
  explicit NotedResult(EncodableList* notes) : notes_(notes) {}
  ~NotedResult() override { notes_->push_back("gone"); }

 protected:
  void SuccessInternal(const EncodableValue* result) override { *notes_ = {"success", *result}; }
  void ErrorInternal(const std::string& code, const std::string& message,
                     const EncodableValue* details) override {
    *notes_ = {"error", code, message, details != nullptr ? *details : EncodableValue()};
  }
  void NotImplementedInternal() override { *notes_ = {"not implemented"}; }

 private:
  EncodableList* notes_;
};

class BoundaryTest : public testing::Test {
 protected:
  korvane::test::RecordingErrorStream errors_;

 private:
  static korvane::platform::Os With(korvane::test::RecordingErrorStream* errors) {
    korvane::platform::Os os = korvane::platform::RealOs();
    os.error_stream = errors;
    return os;
  }

  korvane::platform::ScopedOs os_{With(&errors_)};
};

}  // namespace flutter
