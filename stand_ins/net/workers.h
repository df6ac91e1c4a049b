// workers.h: threads that belong to an owner and have ended when it says so.
#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <thread>

#include "platform/mutex.h"

namespace korvane::net {

// Any thread may call it, its own workers included.
class Workers {
 public:
  Workers() = default;
  ~Workers() { JoinAll(); }
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  // Runs the work on a thread of its own. An exception ends that thread's work and nothing else.
  // False when the system has no thread left. Ended workers are cleared away here.
  bool Run(std::function<void()> work) KORVANE_EXCLUDES(mutex_);

  // Returns when every worker has ended, also those that were started meanwhile. Never from a
  // worker.
  void JoinAll() KORVANE_EXCLUDES(mutex_);

 private:
  struct Worker {
    std::thread thread;
    std::shared_ptr<std::atomic<bool>> ended;
  };

  static Worker Start(std::function<void()> work);
  std::list<Worker> TakeEnded() KORVANE_REQUIRES(mutex_);

  Mutex mutex_;
  std::list<Worker> workers_ KORVANE_GUARDED_BY(mutex_);
};

}  // namespace korvane::net
