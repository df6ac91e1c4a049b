// call_journal.h: what several fakes were asked to do, in one order, watched for broken orders. Any
// thread.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/mutex.h"
#include "support/order_watcher.h"

namespace korvane::test {

class CallJournal {
 public:
  void Add(std::string call) {
    const MutexLock lock(mutex_);
    order_.See(call);
    calls_.push_back(std::move(call));
  }

  // The calls since the journal was made or last taken.
  std::vector<std::string> Take() {
    const MutexLock lock(mutex_);
    return std::exchange(calls_, {});
  }

 private:
  Mutex mutex_;
  CallOrder order_ KORVANE_GUARDED_BY(mutex_);
  std::vector<std::string> calls_ KORVANE_GUARDED_BY(mutex_);
};

// For names that the host uses, which are ASCII.
inline std::string Narrow(std::wstring_view text) {
  std::string narrow;
  for (const wchar_t c : text) {
    narrow += static_cast<char>(c);
  }
  return narrow;
}

}  // namespace korvane::test
