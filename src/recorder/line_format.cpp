#include "recorder/line_format.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <variant>

namespace korvane {

namespace {

// By byte: whether a string holds it as it is.
constexpr auto kPlain = [] {
  std::array<bool, 256> plain{};
  for (std::size_t code = 0x20; code < plain.size(); ++code) {
    plain[code] = code != '"' && code != '\\';
  }
  return plain;
}();

void AppendString(std::string& out, std::string_view text) {
  constexpr char kDigits[] = "0123456789abcdef";
  out += '"';
  auto place = text.begin();
  while (true) {
    const auto end = std::find_if(place, text.end(), [](char character) {
      return !kPlain[static_cast<unsigned char>(character)];
    });
    out.append(place, end);
    if (end == text.end()) {
      break;
    }
    const auto code = static_cast<unsigned char>(*end);
    if (code >= 0x20) {
      out += '\\';
      out += *end;
    } else {
      out += "\\u00";
      out += kDigits[code >> 4];
      out += kDigits[code & 0xF];
    }
    place = end + 1;
  }
  out += '"';
}

// Writes whichever alternative it is called with.
struct JsonWriter {
  std::string& out;

  void operator()(std::monostate) const { out += "null"; }
  void operator()(bool value) const { out += value ? "true" : "false"; }
  void operator()(std::int32_t value) const { out += std::to_string(value); }
  void operator()(std::int64_t value) const { out += std::to_string(value); }
  void operator()(const std::string& text) const { AppendString(out, text); }

  void operator()(const flutter::EncodableMap& map) const { WriteObject(map, {}); }

  // Both maps ascend, so that one pass over the two brings their members in order.
  void WriteObject(const flutter::EncodableMap& map, const flutter::EncodableMap& over) const {
    out += '{';
    auto member = map.begin();
    for (const auto& replacing : over) {
      while (member != map.end() && member->first < replacing.first) {
        WriteMember(*member++);
      }
      if (member != map.end() && !(replacing.first < member->first)) {
        ++member;
      }
      WriteMember(replacing);
    }
    while (member != map.end()) {
      WriteMember(*member++);
    }
    out += '}';
  }

  void WriteMember(const flutter::EncodableMap::value_type& member) const {
    if (out.back() != '{') {
      out += ',';
    }
    std::visit(*this, member.first.content());
    out += ':';
    std::visit(*this, member.second.content());
  }

  template <typename Unsupported>
  void operator()(const Unsupported&) const {
    out += R"({"recorder_failure":"serialization_unsupported_type"})";
  }
};

}  // namespace

std::string Serialize(const flutter::EncodableValue& value) {
  std::string out;
  std::visit(JsonWriter{out}, value.content());
  return out;
}

std::string SerializeLine(const flutter::EncodableMap& fields, const flutter::EncodableMap& over) {
  constexpr std::size_t kUsualLine = 256;
  std::string line;
  line.reserve(kUsualLine);
  JsonWriter{line}.WriteObject(fields, over);
  line += '\n';
  return line;
}

}  // namespace korvane
