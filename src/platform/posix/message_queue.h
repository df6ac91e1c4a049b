// message_queue.h: the queue of one thread that has windows.
//
// Any thread posts to it and hands it calls; the thread that it belongs to takes from it. Waiting
// costs nothing. A queue outlives its thread as long as somebody holds it, and then only fills up.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>

#include "platform/mutex.h"
#include "platform/result.h"
#include "platform/window_system.h"

namespace korvane::platform {

// As many posted messages as user32 keeps for a thread; calls are counted apart.
inline constexpr std::size_t kMessageQueueLimit = 10000;
// What a full queue gives (ERROR_NOT_ENOUGH_QUOTA).
inline constexpr ErrorCode kErrorQueueFull = 1816;

class MessageQueue {
 public:
  // The calling thread's queue, made on first use. Its address stands for the thread.
  static const std::shared_ptr<MessageQueue>& OfThisThread();

  // Any thread.
  Status Post(const Message& message) KORVANE_EXCLUDES(mutex_);
  // A call that the thread makes while it waits in Next, before any posted message: what another
  // thread or process wants done to one of its windows.
  Status Send(std::function<void()> call) KORVANE_EXCLUDES(mutex_);
  // Takes out what was posted for a window that is no more.
  void Drop(WindowHandle window) KORVANE_EXCLUDES(mutex_);

  // The thread's own. The end that PostQuit asks for is given out when nothing else is queued.
  void PostQuit(int exit_code) KORVANE_EXCLUDES(mutex_);
  // As WindowSystem::Next. What a call throws leaves here.
  int Next(Message& message) KORVANE_EXCLUDES(mutex_);

 private:
  // Waits for the next thing: true and a message, or false and a call.
  bool Take(Message& message, std::function<void()>& call) KORVANE_EXCLUDES(mutex_);

  Mutex mutex_;
  std::condition_variable_any arrived_;
  std::deque<std::function<void()>> calls_ KORVANE_GUARDED_BY(mutex_);
  std::deque<Message> posted_ KORVANE_GUARDED_BY(mutex_);
  std::optional<int> quit_ KORVANE_GUARDED_BY(mutex_);
};

}  // namespace korvane::platform
