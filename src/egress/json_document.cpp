#include "egress/json_document.h"

#include <algorithm>
#include <charconv>
#include <vector>

namespace korvane {

namespace {

constexpr std::uint32_t kFirstHighSurrogate = 0xD800;
constexpr std::uint32_t kFirstLowSurrogate = 0xDC00;
constexpr std::uint32_t kBehindSurrogates = 0xE000;

bool IsBlank(char character) {
  return character == ' ' || character == '\n' || character == '\t' || character == '\r';
}

bool IsDigit(char character) { return character >= '0' && character <= '9'; }

// Writes behind `end` and moves it. A surrogate comes out as three bytes like any other value below
// 10000.
void AppendUtf8(std::uint32_t code, char*& end) {
  const auto append = [&end](std::uint32_t byte) { *end++ = static_cast<char>(byte); };
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

// The document's copy of the text and one position in it. Each operation takes what it reads; after
// a false result the position and the output hold nothing of use.
//
// Strings stay where they lie in the copy. One with escapes is written over itself, since no escape
// is shorter than the bytes that it stands for.
class JsonParser {
 public:
  JsonParser(std::span<char> text, std::pmr::monotonic_buffer_resource& pool)
      : at_(text.data()), end_(text.data() + text.size()), pool_(pool) {}

  bool Document(JsonValue& root) {
    if (!Value(root, 0)) {
      return false;
    }
    SkipBlanks();
    return at_ == end_;
  }

 private:
  // Recursion is bounded by the depth alone.
  bool Value(JsonValue& value, int depth) {
    if (depth > kMaxJsonDepth) {
      return false;
    }
    SkipBlanks();
    if (at_ == end_) {
      return false;
    }
    switch (*at_) {
      case '{':
        return Object(value, depth);
      case '[':
        return Array(value, depth);
      case '"':
        return String(value);
      case 't':
        value = JsonValue::OfBool(true);
        return Take("true");
      case 'f':
        value = JsonValue::OfBool(false);
        return Take("false");
      case 'n':
        value = JsonValue();
        return Take("null");
      default:
        return Number(value);
    }
  }

  bool Object(JsonValue& object, int depth) {
    const std::size_t first_child = open_.size();
    ++at_;
    SkipBlanks();
    if (!Take('}')) {
      do {
        SkipBlanks();
        JsonValue key;
        JsonValue value;
        if (!At('"') || !String(key)) {
          return false;
        }
        SkipBlanks();
        if (!Take(':') || !Value(value, depth + 1)) {
          return false;
        }
        open_.push_back(key);
        open_.push_back(value);
        SkipBlanks();
      } while (Take(','));
      if (!Take('}')) {
        return false;
      }
    }
    object = JsonValue::OfChildren(JsonKind::kObject, Close(first_child));
    return true;
  }

  bool Array(JsonValue& array, int depth) {
    const std::size_t first_child = open_.size();
    ++at_;
    SkipBlanks();
    if (!Take(']')) {
      do {
        JsonValue item;
        if (!Value(item, depth + 1)) {
          return false;
        }
        open_.push_back(item);
        SkipBlanks();
      } while (Take(','));
      if (!Take(']')) {
        return false;
      }
    }
    array = JsonValue::OfChildren(JsonKind::kArray, Close(first_child));
    return true;
  }

  // The children of the innermost container, all known now, at their place in the pool.
  std::span<const JsonValue> Close(std::size_t first_child) {
    const auto first = open_.begin() + static_cast<std::ptrdiff_t>(first_child);
    const auto count = static_cast<std::size_t>(open_.end() - first);
    if (count == 0) {
      return {};
    }
    auto* const children =
        static_cast<JsonValue*>(pool_.allocate(count * sizeof(JsonValue), alignof(JsonValue)));
    std::uninitialized_copy(first, open_.end(), children);
    open_.erase(first, open_.end());
    return {children, count};
  }

  bool String(JsonValue& value) {
    ++at_;
    const char* const begin = at_;
    SkipPlain();
    char* end = at_;
    while (at_ != end_ && *at_ != '"') {
      ++at_;
      if (!Escape(end)) {
        return false;
      }
      const char* const plain = at_;
      SkipPlain();
      end = std::copy(plain, static_cast<const char*>(at_), end);
    }
    value = JsonValue::OfString({begin, static_cast<std::size_t>(end - begin)});
    return Take('"');
  }

  // Skips what a string takes as it is.
  void SkipPlain() {
    while (at_ != end_ && *at_ != '"' && *at_ != '\\') {
      ++at_;
    }
  }

  // From behind the backslash.
  bool Escape(char*& end) {
    constexpr std::string_view kNames = "\"\\/bfnrt";
    constexpr std::string_view kBytes = "\"\\/\b\f\n\r\t";
    if (Take('u')) {
      return UnicodeEscape(end);
    }
    const std::size_t known = at_ != end_ ? kNames.find(*at_) : std::string_view::npos;
    if (known == std::string_view::npos) {
      return false;
    }
    ++at_;
    *end++ = kBytes[known];
    return true;
  }

  // From behind the "u".
  bool UnicodeEscape(char*& end) {
    std::uint32_t code = 0;
    if (!FourHexDigits(code)) {
      return false;
    }
    if (code >= kFirstHighSurrogate && code < kFirstLowSurrogate) {
      char* const behind_first = at_;
      std::uint32_t low = 0;
      if (Take("\\u") && FourHexDigits(low) && low >= kFirstLowSurrogate &&
          low < kBehindSurrogates) {
        code = 0x10000 + ((code - kFirstHighSurrogate) << 10) + (low - kFirstLowSurrogate);
      } else {
        at_ = behind_first;
      }
    }
    AppendUtf8(code, end);
    return true;
  }

  bool FourHexDigits(std::uint32_t& code) {
    if (end_ - at_ < 4) {
      return false;
    }
    const char* const digits = at_;
    at_ += 4;
    const auto read = std::from_chars(digits, at_, code, 16);
    return read.ec == std::errc() && read.ptr == at_;
  }

  bool Number(JsonValue& value) {
    const char* const begin = at_;
    Take('-');
    if (!Digits()) {
      return false;
    }
    const char* const integer_end = at_;
    if (Take('.') && !Digits()) {
      return false;
    }
    if (Take('e') || Take('E')) {
      if (!Take('+')) {
        Take('-');
      }
      if (!Digits()) {
        return false;
      }
    }
    std::int64_t integer = 0;
    const auto read = std::from_chars(begin, integer_end, integer);
    const bool fits = at_ == integer_end && read.ec == std::errc();
    value = fits ? JsonValue::OfInteger(integer) : JsonValue::OfOtherNumber();
    return true;
  }

  // Takes all digits; false when there is none.
  bool Digits() {
    const char* const begin = at_;
    while (at_ != end_ && IsDigit(*at_)) {
      ++at_;
    }
    return at_ != begin;
  }

  void SkipBlanks() {
    while (at_ != end_ && IsBlank(*at_)) {
      ++at_;
    }
  }

  bool At(char character) const { return at_ != end_ && *at_ == character; }

  // Takes the character, or the word, when it is what follows.
  bool Take(char character) {
    if (!At(character)) {
      return false;
    }
    ++at_;
    return true;
  }

  bool Take(std::string_view word) {
    if (!std::string_view(at_, static_cast<std::size_t>(end_ - at_)).starts_with(word)) {
      return false;
    }
    at_ += word.size();
    return true;
  }

  char* at_;
  char* const end_;
  std::pmr::monotonic_buffer_resource& pool_;
  // The children of all containers that are still open, those of the innermost last.
  std::vector<JsonValue> open_;
};

}  // namespace

JsonValue JsonValue::OfBool(bool value) {
  JsonValue made;
  made.kind_ = JsonKind::kBool;
  made.integer_ = value ? 1 : 0;
  return made;
}

JsonValue JsonValue::OfInteger(std::int64_t value) {
  JsonValue made;
  made.kind_ = JsonKind::kInteger;
  made.integer_ = value;
  return made;
}

JsonValue JsonValue::OfOtherNumber() {
  JsonValue made;
  made.kind_ = JsonKind::kOtherNumber;
  return made;
}

JsonValue JsonValue::OfString(std::string_view bytes) {
  JsonValue made;
  made.kind_ = JsonKind::kString;
  made.size_ = bytes.size();
  made.bytes_ = bytes.data();
  return made;
}

JsonValue JsonValue::OfChildren(JsonKind kind, std::span<const JsonValue> children) {
  JsonValue made;
  made.kind_ = kind;
  made.size_ = children.size();
  made.children_ = children.data();
  return made;
}

std::string_view JsonValue::StringValue() const {
  return kind_ == JsonKind::kString ? std::string_view(bytes_, size_) : std::string_view();
}

std::span<const JsonValue> JsonValue::Items() const {
  return kind_ == JsonKind::kArray ? std::span(children_, size_) : std::span<const JsonValue>();
}

std::optional<JsonDocument> ParseJsonDocument(std::string_view text) {
  JsonDocument document;
  auto* const copy = static_cast<char*>(document.pool_->allocate(text.size(), alignof(char)));
  std::copy(text.begin(), text.end(), copy);
  if (!JsonParser({copy, text.size()}, *document.pool_).Document(document.root_)) {
    return std::nullopt;
  }
  return document;
}

const JsonValue* FindMember(const JsonValue& object, std::string_view key) {
  for (std::size_t i = 0; i < object.MemberCount(); ++i) {
    if (object.Key(i) == key) {
      return &object.Member(i);
    }
  }
  return nullptr;
}

}  // namespace korvane
