// json_document.h: a JSON text as a tree, the system's one JSON parser.
//
// Strict where a careless reader would hide a broken configuration (no trailing comma, nothing
// behind the root), lenient where the engine's own reader is (leading zeros, raw control characters
// and any bytes inside strings, lone surrogates). Keys keep their order and their duplicates.
//
// Takes a text of any length and content in linear time. The nesting is bounded, and with it the
// stack of parsing, copying and destroying a tree. Any thread; a document is a plain value.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

struct JsonValue {
  JsonKind kind = JsonKind::kNull;
  bool boolValue = false;
  std::int64_t intValue = 0;
  std::string stringValue;  // any bytes, NUL included
  std::vector<JsonValue> items;
  std::vector<std::string> keys;
  std::vector<JsonValue> values;  // parallel to keys
};

// The root and this many levels below it; a value any deeper fails the document.
inline constexpr int kMaxJsonDepth = 64;

// The tree of the whole text, or nothing when the text isn't exactly one value with blanks around.
std::optional<JsonValue> ParseJsonDocument(std::string_view text);

// The value of the first member whose key equals the text byte for byte; null when there is none
// and for a value that is no object. Points into the object.
const JsonValue* FindMember(const JsonValue& object, std::string_view key);

}  // namespace korvane
