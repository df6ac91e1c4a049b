// method_result.h: the one-shot answer of a method call.
//
// A handler owns the result that it was given and answers it exactly once, at once or later and
// from whatever thread the logic runs on; two threads must not use one result at the same time.
// What a second answer or none does is up to the implementation.
#pragma once

#include <string>

#include "flutter_boundary/encodable_value.h"

namespace flutter {

template <typename T = EncodableValue>
class MethodResult {
 public:
  MethodResult() = default;
  virtual ~MethodResult() = default;
  MethodResult(const MethodResult&) = delete;
  MethodResult& operator=(const MethodResult&) = delete;

  void Success() { SuccessInternal(nullptr); }
  void Success(const T& result) { SuccessInternal(&result); }

  void Error(const std::string& code, const std::string& message = "") {
    ErrorInternal(code, message, nullptr);
  }
  void Error(const std::string& code, const std::string& message, const T& details) {
    ErrorInternal(code, message, &details);
  }

  void NotImplemented() { NotImplementedInternal(); }

 protected:
  // A null result stands for the null value, null details for none.
  virtual void SuccessInternal(const T* result) = 0;
  virtual void ErrorInternal(const std::string& code, const std::string& message,
                             const T* details) = 0;
  virtual void NotImplementedInternal() = 0;
};

}  // namespace flutter
