// counted_subject.h: what the decorators of counting_os are made of.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
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
struct Failed {
  static constexpr bool kPossible = false;
};

template <>
struct Failed<platform::Status> {
  static constexpr bool kPossible = true;
  static platform::Status With(platform::ErrorCode error) { return platform::Status::Fail(error); }
};

template <typename T>
struct Failed<platform::Result<T>> {
  static constexpr bool kPossible = true;
  static platform::Result<T> With(platform::ErrorCode error) {
    return platform::Result<T>::Fail(error);
  }
};

template <typename T>
struct Failed<std::optional<T>> {
  static constexpr bool kPossible = true;
  static std::optional<T> With(platform::ErrorCode) { return std::nullopt; }
};

template <>
struct Failed<platform::WaitOutcome> {
  static constexpr bool kPossible = true;
  static platform::WaitOutcome With(platform::ErrorCode error) {
    return {.result = platform::kWaitFailed, .error = error};
  }
};

template <>
struct Failed<platform::CreatedMutex> {
  static constexpr bool kPossible = true;
  static platform::CreatedMutex With(platform::ErrorCode error) {
    return {.handle = {}, .code = error};
  }
};

template <>
struct Failed<platform::SignerLookup> {
  static constexpr bool kPossible = true;
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
    const auto error = Begin(effect, name, Failed<R>::kPossible);
    if constexpr (Failed<R>::kPossible) {
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

// A decorator of the subject. Both arguments must outlive it.
std::unique_ptr<platform::Clocks> Count(platform::Clocks& inner, OperationCounter& counter);
std::unique_ptr<platform::Identifiers> Count(platform::Identifiers& inner,
                                             OperationCounter& counter);
std::unique_ptr<platform::TextEncoding> Count(platform::TextEncoding& inner,
                                              OperationCounter& counter);
std::unique_ptr<platform::ErrorStream> Count(platform::ErrorStream& inner,
                                             OperationCounter& counter);
std::unique_ptr<platform::Files> Count(platform::Files& inner, OperationCounter& counter);
std::unique_ptr<platform::Registry> Count(platform::Registry& inner, OperationCounter& counter);
std::unique_ptr<platform::ProxySettings> Count(platform::ProxySettings& inner,
                                               OperationCounter& counter);
std::unique_ptr<platform::LoopbackHttp> Count(platform::LoopbackHttp& inner,
                                              OperationCounter& counter);
std::unique_ptr<platform::Network> Count(platform::Network& inner, OperationCounter& counter);
std::unique_ptr<platform::Process> Count(platform::Process& inner, OperationCounter& counter);
std::unique_ptr<platform::KernelObjects> Count(platform::KernelObjects& inner,
                                               OperationCounter& counter);
// `owner` closes the handles of the processes that it launches.
std::unique_ptr<platform::Elevation> Count(platform::Elevation& inner,
                                           platform::KernelObjects& owner,
                                           OperationCounter& counter);
std::unique_ptr<platform::ScheduledCommand> Count(platform::ScheduledCommand& inner,
                                                  OperationCounter& counter);
std::unique_ptr<platform::DynamicLibraries> Count(platform::DynamicLibraries& inner,
                                                  OperationCounter& counter);
std::unique_ptr<platform::CodeTrust> Count(platform::CodeTrust& inner, OperationCounter& counter);
std::unique_ptr<platform::WindowSystem> Count(platform::WindowSystem& inner,
                                              OperationCounter& counter);
std::unique_ptr<platform::Appearance> Count(platform::Appearance& inner, OperationCounter& counter);

}  // namespace korvane::test
