// result.h: what an operation of the platform layer gives back.
//
// Nothing of the layer throws. A failed operation carries the platform's own error number
// (GetLastError on Windows, errno on Linux), read on the line after the failing call.
#pragma once

#include <cstdint>
#include <optional>
#include <utility>

namespace korvane::platform {

// The platform's error number. Its meaning differs between systems; only the names below, which the
// logic must tell apart, are the same on both.
using ErrorCode = std::uint32_t;

// The object was already there (CreateMutexW). The POSIX side reports this number too.
inline constexpr ErrorCode kErrorAlreadyExists = 183;
// The user declined the consent prompt (ShellExecuteExW). The POSIX side reports this number too.
inline constexpr ErrorCode kErrorCancelled = 1223;

// Success, or a failure with its number. A failure's number may be 0 where the platform gave none.
class [[nodiscard]] Status {
 public:
  static Status Ok() { return Status(true, 0); }
  static Status Fail(ErrorCode error) { return Status(false, error); }

  bool ok() const { return ok_; }
  explicit operator bool() const { return ok_; }
  ErrorCode error() const { return error_; }

 private:
  Status(bool ok, ErrorCode error) : ok_(ok), error_(error) {}
  bool ok_;
  ErrorCode error_;
};

// A value, or a failure with its number.
template <typename T>
class [[nodiscard]] Result {
 public:
  Result(T value) : value_(std::move(value)) {}  // NOLINT: a value is a result
  static Result Fail(ErrorCode error) { return Result(error, 0); }

  bool ok() const { return value_.has_value(); }
  explicit operator bool() const { return ok(); }
  // Precondition of the four: ok().
  T& value() & { return *value_; }
  const T& value() const& { return *value_; }
  T value() && { return std::move(*value_); }  // no reference into a result that ends with the line
  T take() { return std::move(*value_); }
  ErrorCode error() const { return error_; }

 private:
  Result(ErrorCode error, int) : error_(error) {}
  std::optional<T> value_;
  ErrorCode error_ = 0;
};

}  // namespace korvane::platform
