// counting_os.h: a record of the operating system that counts the operations made through it, and
// fails or stops at the N-th. The fault sweeps run over it:
//
//   CountingOs counting(RealOs());                        // how many steps does it take?
//   { ScopedOs in_force(counting.os()); Scenario(); }
//   for (std::size_t step = 1; step <= counting.count(); ++step) {
//     CountingOs failing(RealOs(), FailOnce(step));       // and what if this one fails?
//     ...
//   }
//
// Whatever the plan, the orders of order_watcher.h are watched on the way.
//
// Any thread may make operations. A file's or handle's silent close by its destructor counts like
// any other.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/os.h"

namespace korvane::test {

struct Operation {
  std::string_view name;  // "Files.Rename"; lives as long as the program
  bool changes = false;   // leaves behind what another process or the next run can see
  bool fallible = false;  // its result can say that it failed
};

using OperationFilter = std::function<bool(const Operation&)>;

bool AnyOperation(const Operation& operation);
bool ChangingOperation(const Operation& operation);
bool FallibleOperation(const Operation& operation);

// Input or output error on Linux, access denied on Windows: outside the not-found family on both.
inline constexpr platform::ErrorCode kInjectedError = 5;

// What happens at one of the counted operations. A failed operation isn't made, except that closing
// closes all the same.
struct CountingPlan {
  enum class Action {
    kNone,
    kFailOnce,     // the operation `at`, if it can fail
    kFailFrom,     // it and every one behind it that can
    kStop,         // calls `stop` before it is made; if that returns, things go on
    kPauseAtEach,  // calls `stop` before each of them, and when half of a write is made
  };

  Action action = Action::kNone;
  std::size_t at = 0;  // from 1, over the operations that `counted` takes
  platform::ErrorCode error = kInjectedError;
  std::function<void()> stop;
  OperationFilter counted = AnyOperation;
  bool traced = true;  // false: the trace stays empty, for a long run
  // When set, called behind each operation that was made, on its thread.
  std::function<void(std::string_view name)> ended = nullptr;
};

CountingPlan FailOnce(std::size_t at, OperationFilter counted = FallibleOperation);
CountingPlan FailFrom(std::size_t at, OperationFilter counted = FallibleOperation);
CountingPlan StopAt(std::size_t at, std::function<void()> stop,
                    OperationFilter counted = ChangingOperation);
// Stands still at each moment at which a process may end, so that one run shows them all.
CountingPlan PauseAtEach(std::function<void()> pause);

class CountingOs {
 public:
  // `inner` is copied; its subjects must outlive this.
  explicit CountingOs(const platform::Os& inner, CountingPlan plan = {});
  ~CountingOs();
  CountingOs(const CountingOs&) = delete;
  CountingOs& operator=(const CountingOs&) = delete;

  // Lives as long as this. Nothing that was got through it may outlive it.
  const platform::Os& os() const;

  // How many operations the plan's filter has taken so far.
  std::size_t count() const;
  // The names of all operations so far, in order, filtered or not.
  std::vector<std::string> trace() const;

 private:
  struct Sides;
  std::unique_ptr<Sides> sides_;
};

}  // namespace korvane::test
