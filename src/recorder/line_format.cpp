#include "recorder/line_format.h"

#include <string_view>
#include <variant>

namespace korvane {

namespace {

void AppendString(std::string& out, std::string_view text) {
  constexpr char kDigits[] = "0123456789abcdef";
  out += '"';
  std::size_t copied = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto code = static_cast<unsigned char>(text[i]);
    if (code >= 0x20 && code != '"' && code != '\\') {
      continue;
    }
    out += text.substr(copied, i - copied);
    copied = i + 1;
    if (code >= 0x20) {
      out += '\\';
      out += text[i];
    } else {
      out += "\\u00";
      out += kDigits[code >> 4];
      out += kDigits[code & 0xF];
    }
  }
  out += text.substr(copied);
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

  void operator()(const flutter::EncodableMap& map) const {
    out += '{';
    bool first = true;
    for (const auto& [key, value] : map) {
      if (!first) {
        out += ',';
      }
      first = false;
      std::visit(*this, key.content());
      out += ':';
      std::visit(*this, value.content());
    }
    out += '}';
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

std::string SerializeLine(const flutter::EncodableMap& fields) {
  std::string line;
  JsonWriter{line}(fields);
  line += '\n';
  return line;
}

}  // namespace korvane
