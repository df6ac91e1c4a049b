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
  for (const JsonValue& item : value.Items()) {
    CheckTree(item, depth + 1);
  }
  for (std::size_t i = 0; i < value.MemberCount(); ++i) {
    const JsonValue* found = korvane::FindMember(value, value.Key(i));
    Require(found != nullptr && found <= &value.Member(i));
    CheckTree(value.Member(i), depth + 1);
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
  const auto document = korvane::ParseJsonDocument(text);
  if (document) {
    CheckTree(document->Root(), 0);
  } else if (IsComparable(text)) {
    Require(!nlohmann::json::accept(text));
  }
  return 0;
}
