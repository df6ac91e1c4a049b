// method_arguments.h: reading a call's arguments by exact type, and the strings of its answer.
#pragma once

#include <string>
#include <string_view>

#include "flutter_boundary/encodable_value.h"
#include "flutter_boundary/utf8.h"

namespace korvane {

// The value behind a key when the arguments are a map and the value is exactly a T; null otherwise.
template <typename T>
const T* FindArgument(const flutter::EncodableValue& arguments, std::string_view key) {
  const auto* map = arguments.GetIf<flutter::EncodableMap>();
  return map != nullptr ? flutter::FindIf<T>(*map, key) : nullptr;
}

// The string behind a key; empty when it is absent or no string.
inline std::string StringArgument(const flutter::EncodableValue& arguments, std::string_view key) {
  const auto* text = FindArgument<std::string>(arguments, key);
  return text != nullptr ? *text : std::string();
}

// Native text as a channel value.
inline flutter::EncodableValue TextValue(const std::string& text) {
  return flutter::EncodableValue(EnsureUtf8(text));
}

}  // namespace korvane
