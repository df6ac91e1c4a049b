#include "platform/posix/message_queue.h"

#include <utility>

namespace korvane::platform {

const std::shared_ptr<MessageQueue>& MessageQueue::OfThisThread() {
  static thread_local const auto queue = std::make_shared<MessageQueue>();
  return queue;
}

Status MessageQueue::Post(const Message& message) {
  {
    const MutexLock lock(mutex_);
    if (posted_.size() >= kMessageQueueLimit) {
      return Status::Fail(kErrorQueueFull);
    }
    posted_.push_back(message);
  }
  arrived_.notify_one();
  return Status::Ok();
}

Status MessageQueue::Send(std::function<void()> call) {
  {
    const MutexLock lock(mutex_);
    if (calls_.size() >= kMessageQueueLimit) {
      return Status::Fail(kErrorQueueFull);
    }
    calls_.push_back(std::move(call));
  }
  arrived_.notify_one();
  return Status::Ok();
}

void MessageQueue::Drop(WindowHandle window) {
  const MutexLock lock(mutex_);
  std::erase_if(posted_, [window](const Message& message) { return message.window == window; });
}

void MessageQueue::PostQuit(int exit_code) {
  const MutexLock lock(mutex_);
  quit_ = exit_code;
}

int MessageQueue::Next(Message& message) {
  std::function<void()> call;
  while (!Take(message, call)) {
    std::exchange(call, nullptr)();
  }
  return message.number == kWmQuit ? 0 : 1;
}

bool MessageQueue::Take(Message& message, std::function<void()>& call) {
  const MutexLock lock(mutex_);
  while (calls_.empty() && posted_.empty() && !quit_) {
    arrived_.wait(mutex_);
  }
  if (!calls_.empty()) {
    call = std::move(calls_.front());
    calls_.pop_front();
    return false;
  }
  if (!posted_.empty()) {
    message = posted_.front();
    posted_.pop_front();
    return true;
  }
  const int exit_code = *std::exchange(quit_, std::nullopt);
  message = {.number = kWmQuit, .parameter = static_cast<MessageParameter>(exit_code)};
  return true;
}

}  // namespace korvane::platform
