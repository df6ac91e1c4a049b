// The standard codec beside msgpack and CBOR, on a listing of 3 rows with 26 keys and on one long
// text, and a whole method call beside its codec alone.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <msgpack.hpp>
#include <nlohmann/json.hpp>

#include "flutter_boundary/binary_messenger.h"
#include "flutter_boundary/byte_streams.h"
#include "flutter_boundary/method_channel.h"
#include "flutter_boundary/standard_codec_serializer.h"
#include "flutter_boundary/standard_method_codec.h"
#include "samples.h"

namespace korvane::bench {
namespace {

constexpr int kKeys = 26;
constexpr int kRows = 3;
constexpr std::size_t kTextBytes = 200'000;

using Row = std::map<std::string, std::string>;
using Rows = std::vector<Row>;

Rows MakeRows() {
  Rows rows(kRows);
  for (Row& row : rows) {
    for (int key = 0; key < kKeys; ++key) {
      row["evidence_key_" + std::to_string(key)] = "2026-01-02T03:04:05Z, " + std::to_string(key);
    }
  }
  return rows;
}

struct Ours {
  static flutter::EncodableValue Value(const Rows& rows) {
    flutter::EncodableList list;
    for (const Row& row : rows) {
      flutter::EncodableMap map;
      for (const auto& [key, value] : row) {
        map.emplace(key, value);
      }
      list.emplace_back(std::move(map));
    }
    return list;
  }
  static flutter::EncodableValue Value(const std::string& text) { return text; }
  static std::vector<std::uint8_t> Encode(const flutter::EncodableValue& value) {
    flutter::ByteBufferStreamWriter stream;
    flutter::StandardCodecSerializer::GetInstance().WriteValue(value, stream);
    return stream.Take();
  }
  static flutter::EncodableValue Decode(const std::vector<std::uint8_t>& bytes) {
    flutter::ByteBufferStreamReader stream(bytes);
    return flutter::StandardCodecSerializer::GetInstance().ReadValue(stream);
  }
};

struct Msgpack {
  template <typename T>
  static T Value(const T& value) {
    return value;
  }
  template <typename T>
  static msgpack::sbuffer Encode(const T& value) {
    msgpack::sbuffer bytes;
    msgpack::pack(bytes, value);
    return bytes;
  }
  static msgpack::object_handle Decode(const msgpack::sbuffer& bytes) {
    return msgpack::unpack(bytes.data(), bytes.size());
  }
};

// Decodes to values that own their texts, as the codec does.
struct MsgpackOwned : Msgpack {
  static Rows Decode(const msgpack::sbuffer& bytes) {
    return msgpack::unpack(bytes.data(), bytes.size())->as<Rows>();
  }
};

struct Cbor {
  template <typename T>
  static nlohmann::json Value(const T& value) {
    return value;
  }
  static std::vector<std::uint8_t> Encode(const nlohmann::json& value) {
    return nlohmann::json::to_cbor(value);
  }
  static nlohmann::json Decode(const std::vector<std::uint8_t>& bytes) {
    return nlohmann::json::from_cbor(bytes);
  }
};

struct Copy {
  static std::string Value(const std::string& text) { return text; }
  static std::string Encode(const std::string& text) { return text; }
  static std::string Decode(const std::string& text) { return text; }
};

template <typename Subject, typename Source>
void MeasureEncode(benchmark::State& state, const Source& source) {
  const auto value = Subject::Value(source);
  for (auto _ : state) {
    benchmark::DoNotOptimize(Subject::Encode(value));
  }
}

template <typename Subject, typename Source>
void MeasureDecode(benchmark::State& state, const Source& source) {
  const auto bytes = Subject::Encode(Subject::Value(source));
  for (auto _ : state) {
    benchmark::DoNotOptimize(Subject::Decode(bytes));
  }
}

template <typename Subject>
void EncodeRows(benchmark::State& state) {
  MeasureEncode<Subject>(state, MakeRows());
}
BENCHMARK(EncodeRows<Ours>)->Name("encode_rows/ours");
BENCHMARK(EncodeRows<Msgpack>)->Name("encode_rows/msgpack");
BENCHMARK(EncodeRows<Cbor>)->Name("encode_rows/cbor");

template <typename Subject>
void DecodeRows(benchmark::State& state) {
  MeasureDecode<Subject>(state, MakeRows());
}
BENCHMARK(DecodeRows<Ours>)->Name("decode_rows/ours");
BENCHMARK(DecodeRows<MsgpackOwned>)->Name("decode_rows/msgpack");
BENCHMARK(DecodeRows<Msgpack>)->Name("decode_rows/msgpack_views");
BENCHMARK(DecodeRows<Cbor>)->Name("decode_rows/cbor");

template <typename Subject>
void EncodeText(benchmark::State& state) {
  MeasureEncode<Subject>(state, Configuration(kTextBytes));
}
BENCHMARK(EncodeText<Ours>)->Name("encode_text/ours");
BENCHMARK(EncodeText<Msgpack>)->Name("encode_text/msgpack");
BENCHMARK(EncodeText<Copy>)->Name("encode_text/copy");

template <typename Subject>
void DecodeText(benchmark::State& state) {
  MeasureDecode<Subject>(state, Configuration(kTextBytes));
}
BENCHMARK(DecodeText<Ours>)->Name("decode_text/ours");
BENCHMARK(DecodeText<Copy>)->Name("decode_text/copy");

// Hands each message to the one handler, and keeps the size of its reply.
class OneHandlerMessenger : public flutter::BinaryMessenger {
 public:
  void Send(const std::string&, flutter::MessageBytes) const override {}
  void SendWithReply(const std::string&, flutter::MessageBytes,
                     flutter::BinaryReply) const override {}
  void SetMessageHandler(const std::string&, flutter::BinaryMessageHandler handler) override {
    handler_ = std::move(handler);
  }

  std::size_t Deliver(flutter::MessageBytes message) const {
    std::size_t bytes = 0;
    handler_(message, [&bytes](flutter::MessageBytes reply) { bytes = reply.size(); });
    return bytes;
  }

 private:
  flutter::BinaryMessageHandler handler_;
};

std::vector<std::uint8_t> SmallCall() {
  return flutter::StandardMethodCodec::GetInstance().EncodeMethodCall(
      flutter::MethodCall<flutter::EncodableValue>("getCoreVersion", {}));
}

void MethodCallThroughChannel(benchmark::State& state) {
  OneHandlerMessenger messenger;
  flutter::MethodChannel<> channel(&messenger, "core",
                                   &flutter::StandardMethodCodec::GetInstance());
  channel.SetMethodCallHandler([](const auto&, auto result) { result->Success("1.12.0"); });
  const std::vector<std::uint8_t> message = SmallCall();
  for (auto _ : state) {
    benchmark::DoNotOptimize(messenger.Deliver(message));
  }
}
BENCHMARK(MethodCallThroughChannel)->Name("method_call/ours");

void CodecOfAMethodCall(benchmark::State& state) {
  const auto& codec = flutter::StandardMethodCodec::GetInstance();
  const std::vector<std::uint8_t> message = SmallCall();
  for (auto _ : state) {
    benchmark::DoNotOptimize(codec.DecodeMethodCall(message));
    const flutter::EncodableValue answer("1.12.0");
    benchmark::DoNotOptimize(codec.EncodeSuccessEnvelope(&answer));
  }
}
BENCHMARK(CodecOfAMethodCall)->Name("method_call/codec");

}  // namespace
}  // namespace korvane::bench
