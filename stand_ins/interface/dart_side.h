// dart_side.h: the Dart program's half of the channels: what it asked and awaits, what it was told.
//
// A call is open from the moment at which its line was read until its reply, so that whoever waits
// for open calls waits for those that are still queued too. Response handles are numbers that point
// at nothing and are never given twice: a second answer to one of them is always told from a first
// answer to another. Any thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <span>
#include <string>

#include "flutter_boundary/flutter_windows_abi.h"
#include "interface/journal.h"
#include "interface/json.h"
#include "platform/mutex.h"

namespace korvane::stand_in {

class DartSide {
 public:
  using ResponseHandle = const FlutterDesktopMessageResponseHandle*;

  explicit DartSide(Journal& journal) : journal_(journal) {}

  // Opens a call. A null id gets the next number that no call has had. Null when a call of that id
  // is still open.
  ResponseHandle OpenCall(const Json& id) KORVANE_EXCLUDES(mutex_);

  // Whether a call of this id was ever opened.
  bool Knows(const Json& id) KORVANE_EXCLUDES(mutex_);

  // The host's answer to a call, told as a line. False when the handle isn't open.
  bool TakeReply(ResponseHandle handle, std::span<const std::uint8_t> envelope,
                 bool on_window_thread) KORVANE_EXCLUDES(mutex_);

  // A message of the host's on a channel, told as a line.
  void TakeMessage(const std::string& channel, std::span<const std::uint8_t> message);

  // What Dart answers to such a message.
  static Bytes AnswerTo(const std::string& channel);

  // Waits until no call is open; false when the time ran out.
  [[nodiscard]] bool WaitForReplies(std::chrono::milliseconds timeout) KORVANE_EXCLUDES(mutex_);
  // The ids of the open calls.
  Json OpenCalls() KORVANE_EXCLUDES(mutex_);

  // Forgets the ids of former calls.
  void Forget() KORVANE_EXCLUDES(mutex_);

  // The engine is gone: nobody awaits anything any more.
  void End() KORVANE_EXCLUDES(mutex_);

 private:
  Journal& journal_;
  Mutex mutex_;
  std::condition_variable_any closed_;
  std::map<ResponseHandle, Json> open_ KORVANE_GUARDED_BY(mutex_);
  std::set<std::string> known_ KORVANE_GUARDED_BY(mutex_);  // ids as JSON text
  std::int64_t last_id_ KORVANE_GUARDED_BY(mutex_) = 0;
  std::uintptr_t last_handle_ KORVANE_GUARDED_BY(mutex_) = 0;
};

}  // namespace korvane::stand_in
