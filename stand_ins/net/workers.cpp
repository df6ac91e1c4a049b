#include "net/workers.h"

#include <iterator>
#include <system_error>
#include <utility>

namespace korvane::net {
namespace {

void RunGuarded(const std::function<void()>& work) {
  try {
    work();
  } catch (...) {
    // One connection's trouble (no memory left, mostly) ends that connection alone.
  }
}

}  // namespace

bool Workers::Run(std::function<void()> work) {
  std::list<Worker> ended_workers;
  bool started = true;
  {
    const MutexLock lock(mutex_);
    ended_workers = TakeEnded();
    try {
      workers_.push_back(Start(std::move(work)));
    } catch (const std::system_error&) {
      started = false;
    }
  }
  for (Worker& worker : ended_workers) {
    worker.thread.join();
  }
  return started;
}

Workers::Worker Workers::Start(std::function<void()> work) {
  auto ended = std::make_shared<std::atomic<bool>>(false);
  std::thread thread([ended, work = std::move(work)] {
    RunGuarded(work);
    ended->store(true, std::memory_order_release);
  });
  return {std::move(thread), std::move(ended)};
}

std::list<Workers::Worker> Workers::TakeEnded() {
  std::list<Worker> gone;
  for (auto worker = workers_.begin(); worker != workers_.end();) {
    const auto next = std::next(worker);
    if (worker->ended->load(std::memory_order_acquire)) {
      gone.splice(gone.end(), workers_, worker);
    }
    worker = next;
  }
  return gone;
}

void Workers::JoinAll() {
  for (;;) {
    std::list<Worker> first;
    {
      const MutexLock lock(mutex_);
      if (workers_.empty()) {
        return;
      }
      first.splice(first.end(), workers_, workers_.begin());
    }
    first.front().thread.join();
  }
}

}  // namespace korvane::net
