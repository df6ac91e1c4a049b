#include "engine/engine_process.h"

#include <utility>

#include "platform/no_destructor.h"

namespace korvane::stand_in {

EngineProcess& EngineProcess::Get() {
  static NoDestructor<EngineProcess> process;
  return *process;
}

std::uint64_t EngineProcess::Add(std::shared_ptr<Service> service) {
  const MutexLock lock(mutex_);
  services_.emplace(++last_id_, std::move(service));
  return last_id_;
}

std::shared_ptr<Service> EngineProcess::Find(std::uint64_t id) {
  const MutexLock lock(mutex_);
  const auto found = services_.find(id);
  return found == services_.end() ? nullptr : found->second;
}

void EngineProcess::Remove(std::uint64_t id) {
  std::shared_ptr<Service> removed;  // let go of outside the lock: its end waits for its workers
  const MutexLock lock(mutex_);
  const auto found = services_.find(id);
  if (found == services_.end()) {
    return;
  }
  removed = std::move(found->second);
  services_.erase(found);
}

void EngineProcess::SetLastError(std::string text) {
  const MutexLock lock(mutex_);
  last_error_ = std::move(text);
}

std::optional<std::string> EngineProcess::LastError() {
  const MutexLock lock(mutex_);
  return last_error_;
}

}  // namespace korvane::stand_in
