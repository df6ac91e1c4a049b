#include "interface/dart_side.h"

#include <algorithm>
#include <utility>

#include "interface/channel_value.h"
#include "interface/dart_message.h"

namespace korvane::stand_in {

DartSide::ResponseHandle DartSide::OpenCall(const Json& id) {
  MutexLock lock(mutex_);
  Json own = id;
  while (own.is_null() || (id.is_null() && known_.contains(own.dump()))) {
    own = ++last_id_;
  }
  const auto is_same = [&](const auto& call) { return call.second == own; };
  if (std::any_of(open_.begin(), open_.end(), is_same)) {
    return nullptr;
  }
  known_.insert(own.dump());
  journal_.ExpectReply(own);
  last_handle_ += 16;
  const auto handle =
      reinterpret_cast<ResponseHandle>(last_handle_);  // NOLINT(performance-no-int-to-ptr)
  open_.emplace(handle, std::move(own));
  return handle;
}

bool DartSide::Knows(const Json& id) {
  MutexLock lock(mutex_);
  return known_.contains(id.dump());
}

bool DartSide::TakeReply(ResponseHandle handle, std::span<const std::uint8_t> envelope,
                         bool on_window_thread) {
  MutexLock lock(mutex_);
  const auto call = open_.find(handle);
  if (call == open_.end()) {
    return false;
  }
  Json line;
  line["reply"] = call->second;
  line.update(DescribeReply(envelope));
  if (!line.contains("not_implemented")) {
    line["thread"] = on_window_thread ? "window" : "worker";
  }
  // Under the lock, so that whoever waits for open calls finds the line written.
  journal_.Write(line);
  open_.erase(call);
  closed_.notify_all();
  return true;
}

void DartSide::TakeMessage(const std::string& channel, std::span<const std::uint8_t> message) {
  Json line;
  if (channel == kVpnEventsChannel) {
    line = DescribeEvent(message);
  } else {
    if (channel != kVpnChannel) {
      line["channel"] = ShortChannelName(channel);
    }
    line.update(DescribeCall(message));
  }
  journal_.Write(line);
}

Bytes DartSide::AnswerTo(const std::string& channel) {
  return channel == kVpnChannel || channel == kCoreChannel ? EncodeNullReply() : Bytes();
}

bool DartSide::WaitForReplies(std::chrono::milliseconds timeout) {
  MutexLock lock(mutex_);
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!open_.empty()) {
    if (closed_.wait_until(mutex_, deadline) == std::cv_status::timeout) {
      return open_.empty();
    }
  }
  return true;
}

Json DartSide::OpenCalls() {
  MutexLock lock(mutex_);
  Json ids = Json::array();
  for (const auto& [handle, id] : open_) {
    ids.push_back(id);
  }
  return ids;
}

void DartSide::Forget() {
  MutexLock lock(mutex_);
  known_.clear();
}

void DartSide::End() {
  MutexLock lock(mutex_);
  open_.clear();
  closed_.notify_all();
}

}  // namespace korvane::stand_in
