// json_document.h: a JSON text as a tree, the system's one JSON parser.
//
// Strict where a careless reader would hide a broken configuration (no trailing comma, nothing
// behind the root), lenient where the engine's own reader is (leading zeros, raw control characters
// and any bytes inside strings, lone surrogates). Keys keep their order and their duplicates.
//
// Who owns what: a document owns one pool, and in it its own copy of the text and all values of the
// tree. The pool only grows and is freed at once with the document. Whatever is reached from a
// document (values, strings, keys) points into its pool and ends with it; moving the document
// leaves it all in place.
//
// Takes a text of any length and content in linear time. The nesting is bounded, and with it the
// stack of parsing and walking a tree. Any thread; a document doesn't change once it is there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <memory_resource>
#include <optional>
#include <span>
#include <string_view>

namespace korvane {

enum class JsonKind : std::int32_t {
  kNull = 0,
  kBool = 1,
  kInteger = 2,      // fits into signed 64 bits
  kOtherNumber = 3,  // has a fraction or an exponent, or is out of range; the value isn't kept
  kString = 4,
  kArray = 5,
  kObject = 6,
};

// One value: a small record that is copied freely and owns nothing. What doesn't belong to its kind
// reads as false, 0 or empty.
class JsonValue {
 public:
  JsonValue() = default;  // null
  static JsonValue OfBool(bool value);
  static JsonValue OfInteger(std::int64_t value);
  static JsonValue OfOtherNumber();
  static JsonValue OfString(std::string_view bytes);
  // Of an array its items; of an object each key, a string, and its value behind it.
  static JsonValue OfChildren(JsonKind kind, std::span<const JsonValue> children);

  JsonKind Kind() const { return kind_; }
  bool BoolValue() const { return kind_ == JsonKind::kBool && integer_ != 0; }
  std::int64_t IntValue() const { return kind_ == JsonKind::kInteger ? integer_ : 0; }
  // Any bytes, NUL included.
  std::string_view StringValue() const;
  // The items of an array, in document order.
  std::span<const JsonValue> Items() const;
  // The members of an object, in document order; an index lies below the count.
  std::size_t MemberCount() const { return kind_ == JsonKind::kObject ? size_ / 2 : 0; }
  std::string_view Key(std::size_t index) const { return children_[2 * index].StringValue(); }
  const JsonValue& Member(std::size_t index) const { return children_[2 * index + 1]; }

 private:
  JsonKind kind_ = JsonKind::kNull;
  std::size_t size_ = 0;  // of bytes_ or children_
  union {
    std::int64_t integer_ = 0;  // of a boolean 0 or 1
    const char* bytes_;
    const JsonValue* children_;
  };
};

class JsonDocument {
 public:
  const JsonValue& Root() const { return root_; }

 private:
  friend std::optional<JsonDocument> ParseJsonDocument(std::string_view text);
  JsonDocument() = default;

  std::unique_ptr<std::pmr::monotonic_buffer_resource> pool_ =
      std::make_unique<std::pmr::monotonic_buffer_resource>();
  JsonValue root_;
};

// The root and this many levels below it; a value any deeper fails the document.
inline constexpr int kMaxJsonDepth = 64;

// The tree of the whole text, or nothing when the text isn't exactly one value with blanks around.
std::optional<JsonDocument> ParseJsonDocument(std::string_view text);

// The value of the first member whose key equals the text byte for byte; null when there is none
// and for a value that is no object. Lives as long as the document.
const JsonValue* FindMember(const JsonValue& object, std::string_view key);

}  // namespace korvane
