#include <array>
#include <cmath>
#include <cstring>
#include <unordered_set>
#include <utility>

#include "interface/channel_value.h"

namespace korvane::stand_in {
namespace {

Json DoubleForm(double value) {
  if (std::isnan(value)) {
    return "NaN";
  }
  if (std::isinf(value)) {
    return value > 0 ? "Infinity" : "-Infinity";
  }
  return value;
}

Json Form(const char* name, Json content) {
  Json form = Json::object();
  form[name] = std::move(content);
  return form;
}

// Whether a map prints as a JSON object: different strings for keys, and nothing that would be read
// back as a form.
bool PrintsAsObject(const Json& pairs) {
  std::unordered_set<std::string> seen;
  for (const auto& pair : pairs) {
    if (!pair[0].is_string() || !seen.insert(pair[0].get<std::string>()).second) {
      return false;
    }
  }
  return pairs.size() != 1 || !seen.begin()->starts_with('$');
}

}  // namespace

Json TextForm(std::string_view bytes) {
  Json text(bytes);
  try {
    (void)text.dump();
    return text;
  } catch (const Json::type_error&) {  // it isn't UTF-8
    std::string latin1;
    for (const char c : bytes) {
      const auto byte = static_cast<unsigned char>(c);
      if (byte >= 0x80) {
        latin1.push_back(static_cast<char>(0xC0 | (byte >> 6)));
      }
      latin1.push_back(byte >= 0x80 ? static_cast<char>(0x80 | (byte & 0x3F)) : c);
    }
    return Form("$latin1", latin1);
  }
}

Json ValueReader::Read() {
  if (++depth_ > kNestingLimit) {
    Fail("nested too deeply");
  }
  Json value = error_.empty() ? ReadOfType(ReadByte()) : Json();
  --depth_;
  return error_.empty() ? value : Json();
}

std::uint8_t ValueReader::ReadByte() { return Take<std::uint8_t>(); }

Json ValueReader::ReadOfType(std::uint8_t type) {
  switch (type) {
    case 0:
      return nullptr;
    case 1:
      return true;
    case 2:
      return false;
    case 3:
      return Take<std::int32_t>();
    case 4:
      return ReadInt64();
    case 5:  // a large integer of Java's: its digits
    case 7:
      return ReadString();
    case 6: {
      Align(8);
      const Json form = DoubleForm(Take<double>());
      return form.is_string() ? Form("$double", form) : form;
    }
    case 8:
      return ReadBytes();
    case 9:
      return ReadNumberList<std::int32_t>("$int32list");
    case 10:
      return ReadNumberList<std::int64_t>("$int64list");
    case 11:
      return ReadNumberList<double>("$float64list");
    case 12:
      return ReadList();
    case 13:
      return ReadMap();
    case 14:
      return ReadNumberList<float>("$float32list");
    default:
      Fail("unknown type byte " + std::to_string(type));
      return nullptr;
  }
}

Json ValueReader::ReadInt64() {
  const auto number = Take<std::int64_t>();
  return std::in_range<std::int32_t>(number) ? Form("$int64", number) : Json(number);
}

Json ValueReader::ReadString() {
  const auto bytes = TakeBytes(TakeSize(1));
  return TextForm({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

Json ValueReader::ReadBytes() { return Form("$bytes", HexFromBytes(TakeBytes(TakeSize(1)))); }

Json ValueReader::ReadList() {
  Json list = Json::array();
  for (auto left = TakeSize(1); left > 0 && error_.empty(); --left) {
    list.push_back(Read());
  }
  return list;
}

Json ValueReader::ReadMap() {
  Json pairs = Json::array();
  for (auto left = TakeSize(2); left > 0 && error_.empty(); --left) {
    Json key = Read();
    pairs.push_back(Json::array({std::move(key), Read()}));
  }
  if (!PrintsAsObject(pairs)) {
    return Form("$map", std::move(pairs));
  }
  Json object = Json::object();
  for (auto& pair : pairs) {
    object[pair[0].get<std::string>()] = std::move(pair[1]);
  }
  return object;
}

template <typename T>
Json ValueReader::ReadNumberList(const char* form) {
  const auto size = TakeSize(sizeof(T));
  Align(sizeof(T));
  Json list = Json::array();
  for (std::size_t i = 0; i < size && error_.empty(); ++i) {
    if constexpr (std::is_floating_point_v<T>) {
      list.push_back(DoubleForm(static_cast<double>(Take<T>())));
    } else {
      list.push_back(Take<T>());
    }
  }
  return Form(form, std::move(list));
}

template <typename T>
T ValueReader::Take() {
  const auto bytes = TakeBytes(sizeof(T));
  T value{};
  if (!bytes.empty()) {
    std::memcpy(&value, bytes.data(), sizeof(T));
  }
  return value;
}

std::size_t ValueReader::TakeSize(std::size_t width) {
  const auto first = Take<std::uint8_t>();
  std::size_t size = first;
  if (first == 254) {
    size = Take<std::uint16_t>();
  }
  if (first == 255) {
    size = Take<std::uint32_t>();
  }
  if (size > (message_.size() - position_) / width) {
    Fail("a size that the bytes don't hold");
  }
  return error_.empty() ? size : 0;
}

std::span<const std::uint8_t> ValueReader::TakeBytes(std::size_t count) {
  if (count > message_.size() - position_) {
    Fail("cut at byte " + std::to_string(position_));
    return {};
  }
  const auto bytes = message_.subspan(position_, count);
  position_ += count;
  return bytes;
}

void ValueReader::Align(std::size_t width) { TakeBytes((width - position_ % width) % width); }

void ValueReader::Fail(std::string why) {
  if (error_.empty()) {
    error_ = std::move(why);
  }
}

}  // namespace korvane::stand_in
