// journal.h: the console's output lines, in the order in which things happened, and the waits on
// them.
//
// A line is written whole, under one lock, by the thread on which the thing happened. What a script
// can wait for is remembered: state words, methods called towards Dart, what became of the window,
// and replies. A wait is met by what arrived after the last wait:
//
//   * state, method, window: arrivals since the line of the wait before this one was read, less
//   what
//     an earlier wait of the same kind has taken. So nothing is lost that arrived while a wait of
//     another kind was still being met, whatever the order of the two.
//   * reply: at any time since the call was sent, ids being unique.
//   * idle_ms: no line for that time, counted from the wait's own line at the earliest.
//
// A state word reaches Dart twice, as an event and as a method call; when they follow each other
// they are one arrival.
//
// Any thread writes; one thread (the console's reader) waits.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "interface/input_line.h"
#include "interface/json.h"
#include "interface/system.h"
#include "platform/mutex.h"

namespace korvane::stand_in {

class Journal {
 public:
  // Writes one line: "ms", then the fields.
  void Write(const Json& fields) KORVANE_EXCLUDES(mutex_);

  // A call with this id is about to be sent: an earlier reply of the id doesn't count any more.
  void ExpectReply(const Json& id) KORVANE_EXCLUDES(mutex_);

  // Waits; false when the time ran out.
  [[nodiscard]] bool Wait(const WaitLine& wait) KORVANE_EXCLUDES(mutex_);

 private:
  using Clock = std::chrono::steady_clock;
  using Kind = WaitLine::Kind;

  struct Arrival {
    Kind kind;
    std::string what;
    bool event;  // a state word that came by the event channel
  };

  void Note(const Json& fields) KORVANE_REQUIRES(mutex_);
  void NoteState(const Json& word, bool event) KORVANE_REQUIRES(mutex_);
  bool WaitForArrival(const WaitLine& wait, Clock::time_point deadline) KORVANE_REQUIRES(mutex_);
  bool WaitForReply(const WaitLine& wait, Clock::time_point deadline) KORVANE_REQUIRES(mutex_);
  bool WaitForQuiet(const WaitLine& wait, Clock::time_point deadline) KORVANE_REQUIRES(mutex_);
  // Whether there was something new before the deadline.
  bool WaitForChange(Clock::time_point deadline) KORVANE_REQUIRES(mutex_);

  Mutex mutex_;
  std::condition_variable_any changed_;
  OutputSink sink_ KORVANE_GUARDED_BY(mutex_);
  std::vector<Arrival> arrivals_ KORVANE_GUARDED_BY(mutex_);
  std::set<std::string> replies_ KORVANE_GUARDED_BY(mutex_);  // ids as JSON text
  Clock::time_point last_line_ KORVANE_GUARDED_BY(mutex_);
  // Where waits look from; see above.
  std::size_t last_wait_began_ KORVANE_GUARDED_BY(mutex_) = 0;
  std::size_t taken_state_ KORVANE_GUARDED_BY(mutex_) = 0;
  std::size_t taken_method_ KORVANE_GUARDED_BY(mutex_) = 0;
  std::size_t taken_window_ KORVANE_GUARDED_BY(mutex_) = 0;
};

}  // namespace korvane::stand_in
