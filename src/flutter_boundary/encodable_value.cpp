#include "flutter_boundary/encodable_value.h"

namespace flutter {

std::partial_ordering operator<=>(const EncodableValue& left, const EncodableValue& right) {
  if (left.index() != right.index()) {
    return left.index() <=> right.index();
  }
  // Map keys, nearly all of them: without a visitor's table.
  if (const auto* text = left.GetIf<std::string>()) {
    return *text <=> *right.GetIf<std::string>();
  }
  return std::visit(
      [&right]<typename T>(const T& content) -> std::partial_ordering {
        return content <=> *right.GetIf<T>();
      },
      left.content());
}

}  // namespace flutter
