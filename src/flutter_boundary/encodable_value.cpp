#include "flutter_boundary/encodable_value.h"

namespace flutter {

std::partial_ordering operator<=>(const EncodableValue& left, const EncodableValue& right) {
  if (left.index() != right.index()) {
    return left.index() <=> right.index();
  }
  return std::visit(
      [&right]<typename T>(const T& content) -> std::partial_ordering {
        return content <=> *right.GetIf<T>();
      },
      left.content());
}

}  // namespace flutter
