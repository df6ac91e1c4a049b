// task_queue.h: tasks for the window thread, one message of its queue for each.
//
// One message, one task: so a task keeps its place among the messages that were posted before and
// behind it. A message that the system wouldn't queue leaves its task to the next one. Any thread
// pushes; tasks run on the window thread.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>

#include "platform/mutex.h"

namespace korvane::stand_in {

class TaskQueue {
 public:
  // Queues one message for the window thread; false when the system refuses. Called with the lock.
  using Wake = std::function<bool()>;

  void Open(Wake wake) KORVANE_EXCLUDES(mutex_);
  // Drops what is queued, and takes no more. Window thread.
  void Close() KORVANE_EXCLUDES(mutex_);

  // Dropped when the queue isn't open.
  void Push(std::function<void()> task) KORVANE_EXCLUDES(mutex_);

  // What one message asks for. Window thread.
  void RunForMessage() KORVANE_EXCLUDES(mutex_);

 private:
  std::function<void()> Take(std::size_t messages_left) KORVANE_EXCLUDES(mutex_);

  Mutex mutex_;
  Wake wake_ KORVANE_GUARDED_BY(mutex_);
  std::deque<std::function<void()>> tasks_ KORVANE_GUARDED_BY(mutex_);
  std::size_t messages_ KORVANE_GUARDED_BY(mutex_) = 0;  // on their way
};

}  // namespace korvane::stand_in
