// encodable_value.h: the values that travel on the platform channels.
//
// EncodableValue is a tagged union of fourteen alternatives. Their order is part of the format: two
// values compare by alternative first and by content when the alternatives are equal, so it decides
// in which order an EncodableMap iterates. Strings compare as unsigned bytes. The 32-bit 1 and the
// 64-bit 1 are two different values and two different keys.
//
// A value is made from exactly one of the alternatives (or a C string): any other integer type is
// refused by the compiler, since it would become 32 or 64 bits depending on the platform. Write
// std::int32_t{...} or std::int64_t{...} as the receiver expects.
//
// Plain values without locks. Comparison, copy and destruction recurse as deep as the value nests;
// what the codec decodes is bounded.
#pragma once

#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace flutter {

class EncodableValue;

using EncodableList = std::vector<EncodableValue>;
// Iterates in ascending key order.
using EncodableMap = std::map<EncodableValue, EncodableValue>;

// The place of values from extensions of the codec. This system has no extension: the type is
// opaque, all of its values are equal, and it can't be encoded.
struct CustomEncodableValue {
  friend bool operator==(const CustomEncodableValue&, const CustomEncodableValue&) = default;
  friend std::strong_ordering operator<=>(const CustomEncodableValue&,
                                          const CustomEncodableValue&) = default;
};

// The fourteen alternatives in index order; index 0 is null.
using EncodableContent =
    std::variant<std::monostate, bool, std::int32_t, std::int64_t, double, std::string,
                 std::vector<std::uint8_t>, std::vector<std::int32_t>, std::vector<std::int64_t>,
                 std::vector<double>, EncodableList, EncodableMap, CustomEncodableValue,
                 std::vector<float>>;

template <typename T, typename Content>
inline constexpr bool kIsAlternativeOf = false;
template <typename T, typename... Alternatives>
inline constexpr bool kIsAlternativeOf<T, std::variant<Alternatives...>> =
    (std::same_as<T, Alternatives> || ...);

template <typename T>
concept EncodableAlternative = kIsAlternativeOf<T, EncodableContent>;
template <typename T>
concept EncodableSource = EncodableAlternative<std::remove_cvref_t<T>>;

class EncodableValue {
 public:
  // Null.
  EncodableValue() = default;

  // Implicit on purpose: a map of values then reads as a table.
  template <EncodableSource T>
  EncodableValue(T&& content) : content_(std::forward<T>(content)) {}

  // A string from zero-terminated UTF-8. A template, so that neither a pointer becomes a bool nor a
  // literal zero of some integer type a null pointer.
  template <std::same_as<const char*> T>
  EncodableValue(T text) : content_(std::string(text)) {}

  // Index of the alternative, 0 to 13.
  std::size_t index() const { return content_.index(); }
  bool IsNull() const { return index() == 0; }

  // The content when it is exactly a T, null otherwise.
  template <EncodableAlternative T>
  const T* GetIf() const {
    return std::get_if<T>(&content_);
  }
  template <EncodableAlternative T>
  T* GetIf() {
    return std::get_if<T>(&content_);
  }

  // For std::visit.
  const EncodableContent& content() const { return content_; }

  friend bool operator==(const EncodableValue& left, const EncodableValue& right) = default;
  // One pass over both, however deep they nest. A NaN is in no order to any number, and breaks the
  // order of a map that has it among its keys; only Dart could send one, and nothing is done about
  // it.
  friend std::partial_ordering operator<=>(const EncodableValue& left, const EncodableValue& right);

 private:
  EncodableContent content_;
};

// The value behind a string key, or null when the key is absent.
inline const EncodableValue* Find(const EncodableMap& map, std::string_view key) {
  const auto found = map.find(EncodableValue(std::string(key)));
  return found != map.end() ? &found->second : nullptr;
}

// The value behind a string key when it is exactly a T; null when it is absent or something else.
template <EncodableAlternative T>
const T* FindIf(const EncodableMap& map, std::string_view key) {
  const EncodableValue* value = Find(map, key);
  return value != nullptr ? value->GetIf<T>() : nullptr;
}

}  // namespace flutter
