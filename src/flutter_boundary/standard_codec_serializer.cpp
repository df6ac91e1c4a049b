#include "flutter_boundary/standard_codec_serializer.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

#include "platform/no_destructor.h"
#include "platform/os.h"

namespace flutter {

namespace {

enum class Type : std::uint8_t {
  kNull = 0,
  kTrue = 1,
  kFalse = 2,
  kInt32 = 3,
  kInt64 = 4,
  kLargeInteger = 5,
  kDouble = 6,
  kString = 7,
  kBytes = 8,
  kInt32List = 9,
  kInt64List = 10,
  kDoubleList = 11,
  kList = 12,
  kMap = 13,
  kFloatList = 14,
};

constexpr std::uint8_t kSizeIn16Bits = 254;
constexpr std::uint8_t kSizeIn32Bits = 255;

class ValueReader {
 public:
  explicit ValueReader(ByteStreamReader& stream) : stream_(stream) {}

  // `enclosing`: how many lists and maps stand around the value. What doesn't nest is read in a
  // frame of its own, so that the frames which repeat stay small.
  EncodableValue Read(int enclosing) {
    const auto type = stream_.ReadNumber<std::uint8_t>();
    if (enclosing < StandardCodecSerializer::kMaximumNesting) {
      if (Type{type} == Type::kList) {
        return ReadList(enclosing);
      }
      if (Type{type} == Type::kMap) {
        return ReadMap(enclosing);
      }
    }
    return ReadFlatValue(type);
  }

 private:
  [[gnu::noinline]] EncodableValue ReadFlatValue(std::uint8_t type) {
    switch (Type{type}) {
      case Type::kNull:
        return {};
      case Type::kTrue:
        return true;
      case Type::kFalse:
        return false;
      case Type::kInt32:
        return stream_.ReadNumber<std::int32_t>();
      case Type::kInt64:
        return stream_.ReadNumber<std::int64_t>();
      case Type::kDouble:
        stream_.ReadAlignment(sizeof(double));
        return stream_.ReadNumber<double>();
      case Type::kLargeInteger:
      case Type::kString:
        return ReadString();
      case Type::kBytes:
        return ReadTypedList<std::uint8_t>();
      case Type::kInt32List:
        return ReadTypedList<std::int32_t>();
      case Type::kInt64List:
        return ReadTypedList<std::int64_t>();
      case Type::kDoubleList:
        return ReadTypedList<double>();
      case Type::kFloatList:
        return ReadTypedList<float>();
      case Type::kList:
      case Type::kMap:
        break;  // too deep
    }
    return Unknown(type);
  }

  static EncodableValue Unknown(std::uint8_t type) {
    korvane::platform::WriteErrorLine(
        "Unknown type in StandardCodecSerializer::ReadValueOfType: " + std::to_string(type) +
        "Custom types require codec extensions.");
    return {};
  }

  [[gnu::noinline]] std::size_t ReadSize() {
    const auto size = stream_.ReadNumber<std::uint8_t>();
    switch (size) {
      case kSizeIn16Bits:
        return stream_.ReadNumber<std::uint16_t>();
      case kSizeIn32Bits:
        return stream_.ReadNumber<std::uint32_t>();
      default:
        return size;
    }
  }

  std::string ReadString() {
    const auto bytes = stream_.ReadView(ReadSize());
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
  }

  template <typename Element>
  std::vector<Element> ReadTypedList() {
    const std::size_t size = ReadSize();
    stream_.ReadAlignment(sizeof(Element));
    if (!stream_.Require(std::uint64_t{size} * sizeof(Element))) {
      return {};
    }
    std::vector<Element> elements(size);
    stream_.ReadBytes(
        {reinterpret_cast<std::uint8_t*>(elements.data()), elements.size() * sizeof(Element)});
    return elements;
  }

  // Nothing is reserved by the claimed size: nested claims would each reserve the whole message.
  EncodableList ReadList(int enclosing) {
    const std::size_t size = ReadSize();
    EncodableList list;
    if (!stream_.Require(size)) {
      return list;
    }
    for (std::size_t read = 0; read < size && !stream_.failed(); ++read) {
      list.push_back(Read(enclosing + 1));
    }
    return list;
  }

  EncodableMap ReadMap(int enclosing) {
    const std::size_t size = ReadSize();
    EncodableMap map;
    if (!stream_.Require(std::uint64_t{size} * 2)) {
      return map;
    }
    for (std::size_t read = 0; read < size && !stream_.failed(); ++read) {
      // Keys mostly come in the order of the map, which makes its end the place to look at first.
      const auto member = map.try_emplace(map.end(), Read(enclosing + 1));
      member->second = Read(enclosing + 1);
    }
    return map;
  }

  ByteStreamReader& stream_;
};

// Writes the content that it is visited with.
class ContentWriter {
 public:
  explicit ContentWriter(ByteStreamWriter& stream) : stream_(stream) {}

  void Write(const EncodableValue& value) const {
    // Nearly all values are strings, which needn't go through a visitor's table.
    if (const auto* text = value.GetIf<std::string>()) {
      (*this)(*text);
    } else {
      std::visit(*this, value.content());
    }
  }

  void operator()(std::monostate) const { WriteType(Type::kNull); }
  void operator()(bool value) const { WriteType(value ? Type::kTrue : Type::kFalse); }
  void operator()(std::int32_t value) const {
    WriteType(Type::kInt32);
    stream_.WriteNumber(value);
  }
  void operator()(std::int64_t value) const {
    WriteType(Type::kInt64);
    stream_.WriteNumber(value);
  }
  void operator()(double value) const {
    WriteType(Type::kDouble);
    stream_.WriteAlignment(sizeof(value));
    stream_.WriteNumber(value);
  }
  void operator()(const std::string& text) const {
    // The common case, a short text with room for it, in one step.
    std::uint8_t* const place =
        text.size() < kSizeIn16Bits ? stream_.TakeRoom(2 + text.size()) : nullptr;
    if (place != nullptr) {
      place[0] = static_cast<std::uint8_t>(Type::kString);
      place[1] = static_cast<std::uint8_t>(text.size());
      std::copy(text.begin(), text.end(), place + 2);
      return;
    }
    WriteHead(Type::kString, text.size());
    stream_.WriteBytes({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
  }
  void operator()(const std::vector<std::uint8_t>& bytes) const {
    WriteTypedList(Type::kBytes, bytes);
  }
  void operator()(const std::vector<std::int32_t>& elements) const {
    WriteTypedList(Type::kInt32List, elements);
  }
  void operator()(const std::vector<std::int64_t>& elements) const {
    WriteTypedList(Type::kInt64List, elements);
  }
  void operator()(const std::vector<double>& elements) const {
    WriteTypedList(Type::kDoubleList, elements);
  }
  void operator()(const std::vector<float>& elements) const {
    WriteTypedList(Type::kFloatList, elements);
  }
  void operator()(const EncodableList& list) const {
    WriteHead(Type::kList, list.size());
    for (const EncodableValue& element : list) {
      Write(element);
    }
  }
  void operator()(const EncodableMap& map) const {
    WriteHead(Type::kMap, map.size());
    for (const auto& [key, value] : map) {
      Write(key);
      Write(value);
    }
  }
  void operator()(const CustomEncodableValue&) const {
    korvane::platform::WriteErrorLine(
        "Unhandled custom type in StandardCodecSerializer::WriteValue. "
        "Custom types require codec extensions.");
    WriteType(Type::kNull);
  }

 private:
  void WriteType(Type type) const { stream_.WriteNumber(static_cast<std::uint8_t>(type)); }

  // The type and the size, in one write.
  void WriteHead(Type type, std::size_t size) const {
    std::array<std::uint8_t, 6> head{static_cast<std::uint8_t>(type)};
    std::size_t length = 2;
    const auto put = [&head, &length](std::uint8_t mark, auto number) {
      head[1] = mark;
      std::memcpy(&head[2], &number, sizeof(number));
      length += sizeof(number);
    };
    if (size < kSizeIn16Bits) {
      head[1] = static_cast<std::uint8_t>(size);
    } else if (size <= std::numeric_limits<std::uint16_t>::max()) {
      put(kSizeIn16Bits, static_cast<std::uint16_t>(size));
    } else {
      put(kSizeIn32Bits, static_cast<std::uint32_t>(size));
    }
    stream_.WriteBytes({head.data(), length});
  }

  template <typename Element>
  void WriteTypedList(Type type, const std::vector<Element>& elements) const {
    WriteHead(type, elements.size());
    stream_.WriteAlignment(sizeof(Element));
    stream_.WriteBytes({reinterpret_cast<const std::uint8_t*>(elements.data()),
                        elements.size() * sizeof(Element)});
  }

  ByteStreamWriter& stream_;
};

}  // namespace

const StandardCodecSerializer& StandardCodecSerializer::GetInstance() {
  static korvane::NoDestructor<StandardCodecSerializer> serializer;
  return *serializer;
}

EncodableValue StandardCodecSerializer::ReadValue(ByteStreamReader& stream) const {
  return ValueReader(stream).Read(0);
}

void StandardCodecSerializer::WriteValue(const EncodableValue& value,
                                         ByteStreamWriter& stream) const {
  ContentWriter(stream).Write(value);
}

}  // namespace flutter
