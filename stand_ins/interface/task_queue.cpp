#include "interface/task_queue.h"

#include <utility>

namespace korvane::stand_in {

void TaskQueue::Open(Wake wake) {
  MutexLock lock(mutex_);
  wake_ = std::move(wake);
}

void TaskQueue::Close() {
  std::deque<std::function<void()>> dropped;  // ends behind the lock
  MutexLock lock(mutex_);
  dropped.swap(tasks_);
  wake_ = nullptr;
  messages_ = 0;
}

void TaskQueue::Push(std::function<void()> task) {
  MutexLock lock(mutex_);
  if (!wake_) {
    return;
  }
  tasks_.push_back(std::move(task));
  if (wake_()) {
    ++messages_;
  }
}

void TaskQueue::RunForMessage() {
  std::size_t messages_left = 0;
  {
    MutexLock lock(mutex_);
    if (messages_ > 0) {
      --messages_;
    }
    messages_left = messages_;
  }
  // One task, and those before the messages that are still on their way can't reach.
  for (auto task = Take(messages_left); task; task = Take(messages_left)) {
    task();
  }
}

std::function<void()> TaskQueue::Take(std::size_t messages_left) {
  MutexLock lock(mutex_);
  if (tasks_.size() <= messages_left) {
    return {};
  }
  auto task = std::move(tasks_.front());
  tasks_.pop_front();
  return task;
}

}  // namespace korvane::stand_in
