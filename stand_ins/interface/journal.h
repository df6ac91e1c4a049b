// journal.h: the console's output lines, in the order in which things happened, and the waits on
// them.
//
// A line is written whole, under one lock, by the thread on which the thing happened. What a script
// can wait for is remembered: state words, methods called towards Dart, what became of the window,
// and replies. A wait is met by what arrived after the last wait was met, with two additions that
// keep a script from depending on which of two threads was quicker: waits in a row all begin where
// the first of them does, and a wait of the same kind takes what it found. So behind a call, the
// waits for its reply and for the state word that it causes may stand in either order. A reply
// counts whenever it came since its call was sent; idle_ms counts from its own line at the
// earliest.
//
// A state word reaches Dart twice, as an event and as a method call; when they follow each other
// they are one arrival.
//
// Any thread writes; one thread (the console's reader) waits.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <map>
#include <optional>
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

  // Waits; false when the time ran out. `in_a_row`: the line before was a wait, too.
  [[nodiscard]] bool Wait(const WaitLine& wait, bool in_a_row) KORVANE_EXCLUDES(mutex_);

  // Forgets all that a later wait could be met by.
  void Forget() KORVANE_EXCLUDES(mutex_);

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
  // Each gives the number of arrivals at the moment at which it was met; nothing after the
  // deadline.
  using Met = std::optional<std::size_t>;
  Met WaitForArrival(const WaitLine& wait, Clock::time_point deadline) KORVANE_REQUIRES(mutex_);
  Met WaitForReply(const WaitLine& wait, Clock::time_point deadline) KORVANE_REQUIRES(mutex_);
  Met WaitForQuiet(const WaitLine& wait, Clock::time_point deadline) KORVANE_REQUIRES(mutex_);
  // Whether there was something new before the deadline.
  bool WaitForChange(Clock::time_point deadline) KORVANE_REQUIRES(mutex_);

  Mutex mutex_;
  std::condition_variable_any changed_;
  OutputSink sink_ KORVANE_GUARDED_BY(mutex_);
  std::vector<Arrival> arrivals_ KORVANE_GUARDED_BY(mutex_);
  // By the id's JSON text, the number of arrivals before it.
  std::map<std::string, std::size_t> replies_ KORVANE_GUARDED_BY(mutex_);
  Clock::time_point last_line_ KORVANE_GUARDED_BY(mutex_);
  // Where waits begin, counted in arrivals.
  std::size_t last_met_ KORVANE_GUARDED_BY(mutex_) = 0;
  std::size_t row_begin_ KORVANE_GUARDED_BY(mutex_) = 0;
  std::map<Kind, std::size_t> taken_ KORVANE_GUARDED_BY(mutex_);
};

}  // namespace korvane::stand_in
