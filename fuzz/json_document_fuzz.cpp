// Arbitrary bytes as a JSON text. What another reader takes is taken too, as far as the two promise
// the same; and whatever is taken keeps the tree's own promises.
#include <algorithm>
#include <cstdint>
#include <string_view>

#include <nlohmann/json.hpp>

#include "egress/json_document.h"
#include "require.h"

namespace {

using korvane::fuzz::Require;

using korvane::JsonKind;
using korvane::JsonValue;

void CheckTree(const JsonValue& value, int depth) {
  Require(depth <= korvane::kMaxJsonDepth);
  Require(value.items.empty() || value.kind == JsonKind::kArray);
  Require(value.keys.empty() || value.kind == JsonKind::kObject);
  Require(value.intValue == 0 || value.kind == JsonKind::kInteger);
  Require(value.keys.size() == value.values.size());
  for (const JsonValue& item : value.items) {
    CheckTree(item, depth + 1);
  }
  for (std::size_t i = 0; i < value.values.size(); ++i) {
    const JsonValue* found = korvane::FindMember(value, value.keys[i]);
    Require(found != nullptr && found <= &value.values[i]);
    CheckTree(value.values[i], depth + 1);
  }
}

// The other reader skips a byte-order mark, ends at a NUL and knows no depth.
bool IsComparable(std::string_view text) {
  const auto opening =
      std::count_if(text.begin(), text.end(), [](char byte) { return byte == '[' || byte == '{'; });
  return !text.starts_with("\xEF\xBB\xBF") && text.find('\0') == std::string_view::npos &&
         opening <= korvane::kMaxJsonDepth;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto root = korvane::ParseJsonDocument(text);
  if (root) {
    CheckTree(*root, 0);
  } else if (IsComparable(text)) {
    Require(!nlohmann::json::accept(text));
  }
  return 0;
}
