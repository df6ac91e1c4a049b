#include "interface/journal.h"

#include <algorithm>
#include <utility>

namespace korvane::stand_in {
namespace {

// When the stand-in came up.
const auto kLoaded = std::chrono::steady_clock::now();

std::int64_t MillisecondsSinceLoad() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                               kLoaded)
      .count();
}

}  // namespace

void Journal::Write(const Json& fields) {
  MutexLock lock(mutex_);
  Json line;
  line["ms"] = MillisecondsSinceLoad();
  for (const auto& [name, value] : fields.items()) {
    line[name] = value;
  }
  sink_.Write(line.dump() + "\n");
  Note(fields);
  last_line_ = Clock::now();
  changed_.notify_all();
}

void Journal::ExpectReply(const Json& id) {
  MutexLock lock(mutex_);
  replies_.erase(id.dump());
}

bool Journal::Wait(const WaitLine& wait, bool in_a_row) {
  MutexLock lock(mutex_);
  if (!in_a_row) {
    row_begin_ = last_met_;
  }
  const auto deadline = Clock::now() + wait.timeout;
  Met met;
  switch (wait.kind) {
    case Kind::kReply:
      met = WaitForReply(wait, deadline);
      break;
    case Kind::kIdle:
      met = WaitForQuiet(wait, deadline);
      break;
    default:
      met = WaitForArrival(wait, deadline);
      break;
  }
  last_met_ = std::max(last_met_, met.value_or(0));
  return met.has_value();
}

void Journal::Forget() {
  MutexLock lock(mutex_);
  std::vector<Arrival>().swap(arrivals_);
  replies_.clear();
  taken_.clear();
  last_met_ = 0;
  row_begin_ = 0;
}

void Journal::Note(const Json& fields) {
  if (fields.contains("reply")) {
    replies_.insert_or_assign(fields["reply"].dump(), arrivals_.size());
  } else if (fields.contains("method") && fields["method"].is_string()) {
    arrivals_.push_back({Kind::kMethod, fields["method"].get<std::string>(), false});
    if (fields["method"] == "onVPNStateChanged") {
      NoteState(fields["args"], false);
    }
  } else if (fields.contains("event")) {
    const auto& event = fields["event"];
    if (event.is_object() && event.contains("status")) {
      NoteState(event["status"], true);
    }
  } else if (fields.contains("window")) {
    arrivals_.push_back({Kind::kWindow, fields["window"].get<std::string>(), false});
  }
}

void Journal::NoteState(const Json& word, bool event) {
  if (!word.is_string()) {
    return;
  }
  const auto last = std::find_if(arrivals_.rbegin(), arrivals_.rend(), [](const Arrival& arrival) {
    return arrival.kind == Kind::kState;
  });
  const auto text = word.get<std::string>();
  if (!event && last != arrivals_.rend() && last->event && last->what == text) {
    last->event = false;  // the event's twin, and the next one isn't
    return;
  }
  arrivals_.push_back({Kind::kState, text, event});
}

Journal::Met Journal::WaitForArrival(const WaitLine& wait, Clock::time_point deadline) {
  const auto wanted = wait.operand.get<std::string>();
  auto& taken = taken_[wait.kind];
  for (auto next = std::max(taken, row_begin_);; ++next) {
    while (next == arrivals_.size()) {
      if (!WaitForChange(deadline)) {
        return std::nullopt;
      }
    }
    if (arrivals_[next].kind == wait.kind && arrivals_[next].what == wanted) {
      taken = next + 1;
      return taken;
    }
  }
}

Journal::Met Journal::WaitForReply(const WaitLine& wait, Clock::time_point deadline) {
  const auto id = wait.operand.dump();
  while (!replies_.contains(id)) {
    if (!WaitForChange(deadline)) {
      return std::nullopt;
    }
  }
  return replies_[id];
}

Journal::Met Journal::WaitForQuiet(const WaitLine& wait, Clock::time_point deadline) {
  const std::chrono::milliseconds quiet(wait.operand.get<std::int64_t>());
  const auto began = Clock::now();
  for (;;) {
    const auto quiet_at = std::max(began, last_line_) + quiet;
    const auto now = Clock::now();
    if (now >= quiet_at) {
      return arrivals_.size();
    }
    if (now >= deadline) {
      return std::nullopt;
    }
    (void)WaitForChange(std::min(quiet_at, deadline));
  }
}

bool Journal::WaitForChange(Clock::time_point deadline) {
  return changed_.wait_until(mutex_, deadline) == std::cv_status::no_timeout;
}

}  // namespace korvane::stand_in
