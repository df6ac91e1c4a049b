// counted_subject.h: what the decorators of counting_os are made of.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/mutex.h"
#include "platform/os.h"
#include "support/counting_os.h"
#include "support/order_watcher.h"

namespace korvane::test {

// Counts operations and carries the plan out. Any thread.
class OperationCounter {
 public:
  OperationCounter(CountingPlan plan, platform::Files& files)
      : watcher(files), plan_(std::move(plan)) {}

  // Before an operation: the error that it is to fail with, or nothing. Stops here if so planned.
  std::optional<platform::ErrorCode> Begin(const Operation& operation);
  void End(std::string_view name) const;

  // In the middle of a counted write: pauses here if so planned.
  bool Halves() const { return plan_.action == CountingPlan::Action::kPauseAtEach; }
  void PauseWithin() const { plan_.stop(); }

  std::size_t count() const;
  std::vector<std::string> trace() const;

  OrderWatcher watcher;

 private:
  const CountingPlan plan_;
  mutable Mutex mutex_;
  std::size_t count_ KORVANE_GUARDED_BY(mutex_) = 0;
  std::vector<std::string> trace_ KORVANE_GUARDED_BY(mutex_);
};

// Tells the counter of an operation's end.
class OperationEnd {
 public:
  OperationEnd(const OperationCounter& counter, std::string_view name)
      : counter_(counter), name_(name) {}
  ~OperationEnd() { counter_.End(name_); }
  OperationEnd(const OperationEnd&) = delete;
  OperationEnd& operator=(const OperationEnd&) = delete;

 private:
  const OperationCounter& counter_;
  const std::string_view name_;
};

// How a result says that its operation failed; nothing for the types that can't.
template <typename R>
struct Failed {};

template <>
struct Failed<platform::Status> {
  static platform::Status With(platform::ErrorCode error) { return platform::Status::Fail(error); }
};
template <typename T>
struct Failed<platform::Result<T>> {
  static platform::Result<T> With(platform::ErrorCode error) {
    return platform::Result<T>::Fail(error);
  }
};
template <typename T>
struct Failed<std::optional<T>> {
  static std::optional<T> With(platform::ErrorCode) { return std::nullopt; }
};
template <>
struct Failed<platform::WaitOutcome> {
  static platform::WaitOutcome With(platform::ErrorCode error) {
    return {.result = platform::kWaitFailed, .error = error};
  }
};
template <>
struct Failed<platform::CreatedMutex> {
  static platform::CreatedMutex With(platform::ErrorCode error) {
    return {.handle = {}, .code = error};
  }
};
template <>
struct Failed<platform::SignerLookup> {
  static platform::SignerLookup With(platform::ErrorCode error) {
    return {.query_failed = true, .error = error, .certificate = nullptr};
  }
};

enum class Effect { kLooks, kChanges };

// The base of one subject's decorator.
template <typename Subject>
class Counted : public Subject {
 public:
  Counted(Subject& inner, OperationCounter& counter) : inner_(inner), counter_(counter) {}

 protected:
  // Counts the operation, then makes it or gives its failed result.
  template <typename R, typename... Parameters, typename... Arguments>
  R Make(Effect effect, const char* name, R (Subject::*method)(Parameters...),
         Arguments&&... arguments) {
    constexpr bool kFallible = requires { Failed<R>::With(0); };
    const auto error = Begin(effect, name, kFallible);
    if constexpr (kFallible) {
      if (error) {
        return Failed<R>::With(*error);
      }
    }
    const OperationEnd end(counter_, name);
    return (inner_.*method)(std::forward<Arguments>(arguments)...);
  }

  // The same for an operation whose failed result is a value of its own.
  template <typename R, typename... Parameters, typename... Arguments>
  R MakeOr(R failed, Effect effect, const char* name, R (Subject::*method)(Parameters...),
           Arguments&&... arguments) {
    if (Begin(effect, name, true)) {
      return failed;
    }
    const OperationEnd end(counter_, name);
    return (inner_.*method)(std::forward<Arguments>(arguments)...);
  }

  // The same for a close: it is made in any case.
  template <typename Owned>
  platform::Status MakeClose(const char* name, Owned& owned) {
    const auto error = Begin(Effect::kLooks, name, true);
    const OperationEnd end(counter_, name);
    const platform::Status closed = inner_.Close(owned);
    return error ? platform::Status::Fail(*error) : closed;
  }

  std::optional<platform::ErrorCode> Begin(Effect effect, const char* name, bool fallible) {
    return counter_.Begin(
        {.name = name, .changes = effect == Effect::kChanges, .fallible = fallible});
  }

  OrderWatcher& watcher() { return counter_.watcher; }

  Subject& inner_;
  OperationCounter& counter_;
};

template <typename Method>
struct Signature;

template <typename Subject, typename R, typename... Parameters>
struct Signature<R (Subject::*)(Parameters...)> {
  using Result = R;
  using All = std::tuple<Parameters...>;
};

template <auto kMethod>
using ResultOf = typename Signature<decltype(kMethod)>::Result;
template <auto kMethod, std::size_t kAt>
using ParameterOf = std::tuple_element_t<kAt, typename Signature<decltype(kMethod)>::All>;

}  // namespace korvane::test

// In a Counted<Subject>: overrides an operation of so many parameters by one that is only counted,
// under its own name, "Subject.Operation".
#define KORVANE_COUNTED(arity, Subject, Operation, effect)                                 \
  ResultOf<&Subject::Operation> Operation(KORVANE_PARAMETERS_##arity(&Subject::Operation)) \
      override {                                                                           \
    return Make(Effect::effect, #Subject "." #Operation,                                   \
                &Subject::Operation KORVANE_ARGUMENTS_##arity);                            \
  }
// The same for one whose failed result is this value.
#define KORVANE_COUNTED_OR(failed, arity, Subject, Operation, effect)                             \
  ResultOf<&Subject::Operation> Operation(KORVANE_PARAMETERS_##arity(&Subject::Operation))        \
      override {                                                                                  \
    return MakeOr<ResultOf<&Subject::Operation>>(failed, Effect::effect, #Subject "." #Operation, \
                                                 &Subject::Operation KORVANE_ARGUMENTS_##arity);  \
  }

#define KORVANE_PARAMETERS_0(method)
#define KORVANE_PARAMETERS_1(method) ParameterOf<method, 0> a
#define KORVANE_PARAMETERS_2(method) KORVANE_PARAMETERS_1(method), ParameterOf<method, 1> b
#define KORVANE_PARAMETERS_3(method) KORVANE_PARAMETERS_2(method), ParameterOf<method, 2> c
#define KORVANE_PARAMETERS_4(method) KORVANE_PARAMETERS_3(method), ParameterOf<method, 3> d
#define KORVANE_PARAMETERS_5(method) KORVANE_PARAMETERS_4(method), ParameterOf<method, 4> e
#define KORVANE_ARGUMENTS_0
#define KORVANE_ARGUMENTS_1 , a
#define KORVANE_ARGUMENTS_2 , a, b
#define KORVANE_ARGUMENTS_3 , a, b, c
#define KORVANE_ARGUMENTS_4 , a, b, c, d
#define KORVANE_ARGUMENTS_5 , a, b, c, d, e
