#include "engine/engine_process.h"

#include <exception>
#include <utility>

#include "engine/host_process.h"
#include "platform/no_destructor.h"

namespace korvane::stand_in {

EngineProcess& EngineProcess::Get() {
  static NoDestructor<EngineProcess> process;
  return *process;
}

EngineProcess::EngineProcess() {
  try {
    options_ = ReadLibraryOptions(LibraryFolder() / "sing-box.stand_in.json");
  } catch (const std::exception& error) {
    options_error_ = std::string("sing-box.stand_in.json: ") + error.what();
  }
}

std::shared_ptr<Service> EngineProcess::Create(const std::string& configuration) const {
  if (!options_error_.empty()) {
    throw ConfigurationError(options_error_);
  }
  return std::make_shared<Service>(ReadConfiguration(configuration, options_.session),
                                   options_.version.value_or(""));
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
