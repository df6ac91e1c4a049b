#include <array>
#include <bit>
#include <cmath>
#include <concepts>
#include <cstring>
#include <limits>
#include <optional>
#include <utility>

#include "interface/channel_value.h"

namespace korvane::stand_in {
namespace {

enum WireType : std::uint8_t {
  kNull = 0,
  kTrue = 1,
  kFalse = 2,
  kInt32 = 3,
  kInt64 = 4,
  kDouble = 6,
  kString = 7,
  kBytes = 8,
  kInt32List = 9,
  kInt64List = 10,
  kFloat64List = 11,
  kList = 12,
  kMap = 13,
  kFloat32List = 14,
};

std::optional<std::int64_t> IntegerOf(const Json& value) {
  if (!value.is_number_integer()) {
    return std::nullopt;
  }
  if (value.is_number_unsigned() && value.get<std::uint64_t>() > INT64_MAX) {
    return std::nullopt;
  }
  return value.get<std::int64_t>();
}

std::optional<double> DoubleOf(const Json& value) {
  if (value.is_number()) {
    return value.get<double>();
  }
  if (value == "NaN") {
    return std::numeric_limits<double>::quiet_NaN();
  }
  if (value == "Infinity") {
    return std::numeric_limits<double>::infinity();
  }
  if (value == "-Infinity") {
    return -std::numeric_limits<double>::infinity();
  }
  return std::nullopt;
}

template <typename T>
std::optional<T> NumberOf(const Json& value) {
  if constexpr (std::floating_point<T>) {
    const auto number = DoubleOf(value);
    return number ? std::optional<T>(static_cast<T>(*number)) : std::nullopt;
  } else {
    const auto number = IntegerOf(value);
    return number && std::in_range<T>(*number) ? std::optional<T>(static_cast<T>(*number))
                                               : std::nullopt;
  }
}

// Characters U+0000 to U+00FF of a UTF-8 text, one byte each; nothing when there are others.
std::optional<std::string> BytesFromLatin1(const std::string& utf8) {
  std::string bytes;
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    const auto lead = static_cast<unsigned char>(utf8[i]);
    if (lead < 0x80) {
      bytes.push_back(utf8[i]);
    } else if (lead == 0xC2 || lead == 0xC3) {
      const auto trail = static_cast<unsigned char>(utf8[++i]);  // the parser took UTF-8 only
      bytes.push_back(static_cast<char>(lead == 0xC3 ? trail + 0x40 : trail));
    } else {
      return std::nullopt;
    }
  }
  return bytes;
}

}  // namespace

void ValueWriter::Write(const Json& value) {
  if (++depth_ > kNestingLimit) {
    Fail("nested too deeply");
  }
  if (error_.empty()) {
    switch (value.type()) {
      case Json::value_t::null:
        Append<std::uint8_t>(kNull);
        break;
      case Json::value_t::boolean:
        Append<std::uint8_t>(value.get<bool>() ? kTrue : kFalse);
        break;
      case Json::value_t::number_integer:
      case Json::value_t::number_unsigned:
        WriteInteger(value);
        break;
      case Json::value_t::number_float:
        WriteDouble(value.get<double>());
        break;
      case Json::value_t::string:
        WriteString(value.get_ref<const std::string&>());
        break;
      case Json::value_t::array:
        WriteList(value);
        break;
      case Json::value_t::object:
        WriteObject(value);
        break;
      default:
        Fail("no channel value");
        break;
    }
  }
  --depth_;
}

void ValueWriter::WriteString(std::string_view bytes) {
  Append<std::uint8_t>(kString);
  AppendSize(bytes.size());
  message_.insert(message_.end(), bytes.begin(), bytes.end());
}

void ValueWriter::WriteInteger(const Json& value) {
  const auto number = IntegerOf(value);
  if (!number) {
    return Fail("an integer above 64 bits");
  }
  if (std::in_range<std::int32_t>(*number)) {
    Append<std::uint8_t>(kInt32);
    Append(static_cast<std::int32_t>(*number));
  } else {
    Append<std::uint8_t>(kInt64);
    Append(*number);
  }
}

void ValueWriter::WriteDouble(double value) {
  Append<std::uint8_t>(kDouble);
  Align(8);
  Append(value);
}

void ValueWriter::WriteList(const Json& list) {
  Append<std::uint8_t>(kList);
  AppendSize(list.size());
  for (const auto& element : list) {
    Write(element);
  }
}

void ValueWriter::WriteObject(const Json& object) {
  if (object.size() == 1 && object.begin().key().starts_with('$')) {
    const auto& name = object.begin().key();
    if (!WriteForm(name, object.begin().value())) {
      Fail("\"" + name + "\" is no form of a value");
    }
    return;
  }
  Append<std::uint8_t>(kMap);
  AppendSize(object.size());
  for (const auto& [key, value] : object.items()) {
    WriteString(key);
    Write(value);
  }
}

bool ValueWriter::WriteForm(const std::string& name, const Json& content) {
  using Writer = void (*)(ValueWriter&, const Json&);
  static constexpr std::array<std::pair<const char*, Writer>, 9> kForms{{
      {"$int64", [](ValueWriter& w, const Json& v) { w.WriteInt64Form(v); }},
      {"$double", [](ValueWriter& w, const Json& v) { w.WriteDoubleForm(v); }},
      {"$bytes", [](ValueWriter& w, const Json& v) { w.WriteBytesForm(v); }},
      {"$int32list",
       [](ValueWriter& w, const Json& v) { w.WriteNumberList<std::int32_t>(kInt32List, v); }},
      {"$int64list",
       [](ValueWriter& w, const Json& v) { w.WriteNumberList<std::int64_t>(kInt64List, v); }},
      {"$float64list",
       [](ValueWriter& w, const Json& v) { w.WriteNumberList<double>(kFloat64List, v); }},
      {"$float32list",
       [](ValueWriter& w, const Json& v) { w.WriteNumberList<float>(kFloat32List, v); }},
      {"$map", [](ValueWriter& w, const Json& v) { w.WriteMapForm(v); }},
      {"$latin1", [](ValueWriter& w, const Json& v) { w.WriteLatin1Form(v); }},
  }};
  for (const auto& [form, write] : kForms) {
    if (name == form) {
      write(*this, content);
      return true;
    }
  }
  return false;
}

void ValueWriter::WriteInt64Form(const Json& content) {
  const auto number = IntegerOf(content);
  if (!number) {
    return Fail("\"$int64\" wants an integer of 64 bits");
  }
  Append<std::uint8_t>(kInt64);
  Append(*number);
}

void ValueWriter::WriteDoubleForm(const Json& content) {
  const auto number = DoubleOf(content);
  if (!number) {
    return Fail("\"$double\" wants a number");
  }
  WriteDouble(*number);
}

void ValueWriter::WriteBytesForm(const Json& content) {
  Bytes bytes;
  if (!content.is_string() || !BytesFromHex(content.get_ref<const std::string&>(), bytes)) {
    return Fail("\"$bytes\" wants hexadecimal digits, two for each byte");
  }
  Append<std::uint8_t>(kBytes);
  AppendSize(bytes.size());
  message_.insert(message_.end(), bytes.begin(), bytes.end());
}

void ValueWriter::WriteMapForm(const Json& content) {
  const auto is_pair = [](const Json& entry) { return entry.is_array() && entry.size() == 2; };
  if (!content.is_array() || !std::all_of(content.begin(), content.end(), is_pair)) {
    return Fail("\"$map\" wants a list of pairs");
  }
  Append<std::uint8_t>(kMap);
  AppendSize(content.size());
  for (const auto& entry : content) {
    Write(entry[0]);
    Write(entry[1]);
  }
}

void ValueWriter::WriteLatin1Form(const Json& content) {
  const auto bytes =
      content.is_string() ? BytesFromLatin1(content.get_ref<const std::string&>()) : std::nullopt;
  if (!bytes) {
    return Fail("\"$latin1\" wants a string of characters up to U+00FF");
  }
  WriteString(*bytes);
}

template <typename T>
void ValueWriter::WriteNumberList(std::uint8_t type, const Json& content) {
  if (!content.is_array()) {
    return Fail("a list of numbers is wanted");
  }
  Append(type);
  AppendSize(content.size());
  Align(sizeof(T));
  for (const auto& element : content) {
    const auto number = NumberOf<T>(element);
    if (!number) {
      return Fail("a list of numbers holds something that doesn't fit");
    }
    Append(*number);
  }
}

template <typename T>
void ValueWriter::Append(T number) {
  const auto bytes = std::bit_cast<std::array<std::uint8_t, sizeof(T)>>(number);
  message_.insert(message_.end(), bytes.begin(), bytes.end());
}

void ValueWriter::AppendSize(std::size_t size) {
  if (size < 254) {
    Append(static_cast<std::uint8_t>(size));
  } else if (size <= UINT16_MAX) {
    Append<std::uint8_t>(254);
    Append(static_cast<std::uint16_t>(size));
  } else if (size <= UINT32_MAX) {
    Append<std::uint8_t>(255);
    Append(static_cast<std::uint32_t>(size));
  } else {
    Fail("longer than the format can say");
  }
}

void ValueWriter::Align(std::size_t width) {
  while (message_.size() % width != 0) {
    message_.push_back(0);
  }
}

void ValueWriter::Fail(std::string why) {
  if (error_.empty()) {
    error_ = std::move(why);
  }
}

bool BytesFromHex(std::string_view text, Bytes& bytes) {
  const auto digit = [](char c) {
    if (c >= '0' && c <= '9') {
      return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
      return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
      return c - 'A' + 10;
    }
    return -1;
  };
  bytes.clear();
  for (std::size_t i = 0; i < text.size();) {
    if (text[i] == ' ') {
      ++i;
      continue;
    }
    const int high = digit(text[i]);
    const int low = i + 1 < text.size() ? digit(text[i + 1]) : -1;
    if (high < 0 || low < 0) {
      return false;
    }
    bytes.push_back(static_cast<std::uint8_t>(high * 16 + low));
    i += 2;
  }
  return true;
}

std::string HexFromBytes(std::span<const std::uint8_t> bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const auto byte : bytes) {
    text.push_back(kDigits[byte >> 4]);
    text.push_back(kDigits[byte & 15]);
  }
  return text;
}

}  // namespace korvane::stand_in
