// native_error_slot.h: the most recent native error, readable and clearable from any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/mutex.h"

namespace korvane {

// The record of one error, as the interface gets it.
struct NativeErrorEvent {
  std::string code;
  std::string message;  // already redacted where it came from the engine
  bool recoverable = false;
  std::int64_t timestamp = 0;  // milliseconds since the Unix epoch
};

// Holds a constant record or nothing. Its own lock is held for the exchange of one pointer and
// nothing is called inside it, so it stands outside the order of the tunnel's locks: a successful
// start clears the slot without queue_mutex.
class NativeErrorSlot {
 public:
  void Store(const NativeErrorEvent& event) {
    Exchange(std::make_shared<const NativeErrorEvent>(event));
  }
  void Clear() { Exchange(nullptr); }

  std::optional<NativeErrorEvent> Load() const {
    std::shared_ptr<const NativeErrorEvent> record;
    {
      const MutexLock lock(mutex_);
      record = record_;
    }
    return record ? std::optional(*record) : std::nullopt;
  }

 private:
  void Exchange(std::shared_ptr<const NativeErrorEvent> record) {
    const MutexLock lock(mutex_);
    record_.swap(record);
  }

  mutable Mutex mutex_;
  std::shared_ptr<const NativeErrorEvent> record_ KORVANE_GUARDED_BY(mutex_);
};

}  // namespace korvane
