#include "egress/json_document.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace korvane {

namespace {

constexpr std::uint32_t kFirstHighSurrogate = 0xD800;
constexpr std::uint32_t kFirstLowSurrogate = 0xDC00;
constexpr std::uint32_t kBehindSurrogates = 0xE000;

bool IsBlank(char character) {
  return character == ' ' || character == '\n' || character == '\t' || character == '\r';
}

bool IsDigit(char character) { return character >= '0' && character <= '9'; }

// A surrogate comes out as three bytes like any other value below 10000.
void AppendUtf8(std::uint32_t code, std::string& out) {
  const auto append = [&out](std::uint32_t byte) { out += static_cast<char>(byte); };
  if (code < 0x80) {
    append(code);
    return;
  }
  if (code < 0x800) {
    append(0xC0 | (code >> 6));
  } else if (code < 0x10000) {
    append(0xE0 | (code >> 12));
    append(0x80 | ((code >> 6) & 0x3F));
  } else {
    append(0xF0 | (code >> 18));
    append(0x80 | ((code >> 12) & 0x3F));
    append(0x80 | ((code >> 6) & 0x3F));
  }
  append(0x80 | (code & 0x3F));
}

// The text and one position. Each operation takes what it reads; after a false result the position
// and the output hold nothing of use.
class JsonParser {
 public:
  explicit JsonParser(std::string_view text) : text_(text) {}

  bool Document(JsonValue& root) {
    if (!Value(root, 0)) {
      return false;
    }
    SkipBlanks();
    return position_ == text_.size();
  }

 private:
  // Recursion is bounded by the depth alone.
  bool Value(JsonValue& value, int depth) {
    if (depth > kMaxJsonDepth) {
      return false;
    }
    SkipBlanks();
    if (position_ == text_.size()) {
      return false;
    }
    switch (text_[position_]) {
      case '{':
        value.kind = JsonKind::kObject;
        return Object(value, depth);
      case '[':
        value.kind = JsonKind::kArray;
        return Array(value, depth);
      case '"':
        value.kind = JsonKind::kString;
        return String(value.stringValue);
      case 't':
        value.kind = JsonKind::kBool;
        value.boolValue = true;
        return Take("true");
      case 'f':
        value.kind = JsonKind::kBool;
        return Take("false");
      case 'n':
        return Take("null");
      default:
        return Number(value);
    }
  }

  bool Object(JsonValue& object, int depth) {
    ++position_;
    SkipBlanks();
    if (Take("}")) {
      return true;
    }
    while (true) {
      SkipBlanks();
      if (!AtQuote() || !String(object.keys.emplace_back())) {
        return false;
      }
      SkipBlanks();
      if (!Take(":") || !Value(object.values.emplace_back(), depth + 1)) {
        return false;
      }
      SkipBlanks();
      if (!Take(",")) {
        return Take("}");
      }
    }
  }

  bool Array(JsonValue& array, int depth) {
    ++position_;
    SkipBlanks();
    if (Take("]")) {
      return true;
    }
    while (true) {
      if (!Value(array.items.emplace_back(), depth + 1)) {
        return false;
      }
      SkipBlanks();
      if (!Take(",")) {
        return Take("]");
      }
    }
  }

  bool String(std::string& out) {
    ++position_;
    while (true) {
      const std::size_t end = PlainEnd();
      if (end == text_.size()) {
        return false;
      }
      out.append(text_, position_, end - position_);
      position_ = end + 1;
      if (text_[end] == '"') {
        return true;
      }
      if (!Escape(out)) {
        return false;
      }
    }
  }

  // The end of what a string takes as it is.
  std::size_t PlainEnd() const {
    std::size_t end = position_;
    while (end < text_.size() && text_[end] != '"' && text_[end] != '\\') {
      ++end;
    }
    return end;
  }

  // From behind the backslash.
  bool Escape(std::string& out) {
    if (position_ == text_.size()) {
      return false;
    }
    constexpr std::string_view kNames = "\"\\/bfnrt";
    constexpr std::string_view kBytes = "\"\\/\b\f\n\r\t";
    const char name = text_[position_++];
    if (name == 'u') {
      return UnicodeEscape(out);
    }
    const std::size_t known = kNames.find(name);
    if (known == std::string_view::npos) {
      return false;
    }
    out += kBytes[known];
    return true;
  }

  // From behind the "u".
  bool UnicodeEscape(std::string& out) {
    std::uint32_t code = 0;
    if (!FourHexDigits(code)) {
      return false;
    }
    if (code >= kFirstHighSurrogate && code < kFirstLowSurrogate) {
      const std::size_t behind_first = position_;
      std::uint32_t low = 0;
      if (Take("\\u") && FourHexDigits(low) && low >= kFirstLowSurrogate &&
          low < kBehindSurrogates) {
        code = 0x10000 + ((code - kFirstHighSurrogate) << 10) + (low - kFirstLowSurrogate);
      } else {
        position_ = behind_first;
      }
    }
    AppendUtf8(code, out);
    return true;
  }

  bool FourHexDigits(std::uint32_t& code) {
    const std::string_view digits = text_.substr(position_, 4);
    const char* const end = digits.data() + digits.size();
    const auto read = std::from_chars(digits.data(), end, code, 16);
    position_ += digits.size();
    return digits.size() == 4 && read.ec == std::errc() && read.ptr == end;
  }

  bool Number(JsonValue& value) {
    const std::size_t begin = position_;
    Take("-");
    if (!Digits()) {
      return false;
    }
    const std::string_view integer = text_.substr(begin, position_ - begin);
    bool whole = true;
    if (Take(".")) {
      whole = false;
      if (!Digits()) {
        return false;
      }
    }
    if (Take("e") || Take("E")) {
      whole = false;
      if (!Take("+")) {
        Take("-");
      }
      if (!Digits()) {
        return false;
      }
    }
    const auto read =
        std::from_chars(integer.data(), integer.data() + integer.size(), value.intValue);
    const bool fits = whole && read.ec == std::errc();
    value.kind = fits ? JsonKind::kInteger : JsonKind::kOtherNumber;
    value.intValue = fits ? value.intValue : 0;
    return true;
  }

  // Takes all digits; false when there is none.
  bool Digits() {
    const std::size_t begin = position_;
    while (position_ < text_.size() && IsDigit(text_[position_])) {
      ++position_;
    }
    return position_ != begin;
  }

  void SkipBlanks() {
    while (position_ < text_.size() && IsBlank(text_[position_])) {
      ++position_;
    }
  }

  bool AtQuote() const { return position_ < text_.size() && text_[position_] == '"'; }

  // Takes the word when it is what follows.
  bool Take(std::string_view word) {
    if (!text_.substr(position_).starts_with(word)) {
      return false;
    }
    position_ += word.size();
    return true;
  }

  const std::string_view text_;
  std::size_t position_ = 0;
};

}  // namespace

std::optional<JsonValue> ParseJsonDocument(std::string_view text) {
  JsonValue root;
  return JsonParser(text).Document(root) ? std::optional(std::move(root)) : std::nullopt;
}

const JsonValue* FindMember(const JsonValue& object, std::string_view key) {
  if (object.kind != JsonKind::kObject) {
    return nullptr;
  }
  const auto found = std::find(object.keys.begin(), object.keys.end(), key);
  return found != object.keys.end()
             ? &object.values[static_cast<std::size_t>(found - object.keys.begin())]
             : nullptr;
}

}  // namespace korvane
