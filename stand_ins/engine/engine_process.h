// engine_process.h: the engine as one process sees it: its services and last error.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "engine/service.h"
#include "platform/mutex.h"

namespace korvane::stand_in {

// Made on first use and never destroyed: services may run until the process ends. Any thread.
class EngineProcess {
 public:
  static EngineProcess& Get();

  // Gives its identifier.
  std::uint64_t Add(std::shared_ptr<Service> service) KORVANE_EXCLUDES(mutex_);
  // Null when there is none.
  std::shared_ptr<Service> Find(std::uint64_t id) KORVANE_EXCLUDES(mutex_);
  void Remove(std::uint64_t id) KORVANE_EXCLUDES(mutex_);

  // The last error belongs to the process and not to the thread, as in the engine.
  void SetLastError(std::string text) KORVANE_EXCLUDES(mutex_);
  std::optional<std::string> LastError() KORVANE_EXCLUDES(mutex_);

 private:
  Mutex mutex_;
  std::uint64_t last_id_ KORVANE_GUARDED_BY(mutex_) = 0;
  std::map<std::uint64_t, std::shared_ptr<Service>> services_ KORVANE_GUARDED_BY(mutex_);
  std::optional<std::string> last_error_ KORVANE_GUARDED_BY(mutex_);
};

}  // namespace korvane::stand_in
