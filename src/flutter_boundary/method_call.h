// method_call.h: one call of a method on a channel, in either direction.
#pragma once

#include <string>
#include <utility>

#include "flutter_boundary/encodable_value.h"

namespace flutter {

// Owns its name and arguments: nothing points into the message that it came from.
template <typename T = EncodableValue>
class MethodCall {
 public:
  // A call without arguments carries the null value.
  explicit MethodCall(std::string method_name, T arguments = T())
      : method_name_(std::move(method_name)), arguments_(std::move(arguments)) {}

  const std::string& method_name() const { return method_name_; }
  const T& arguments() const { return arguments_; }

 private:
  std::string method_name_;
  T arguments_;
};

}  // namespace flutter
