// The host, with a clock at each of its system's operations on the window thread. Into the file
// named by KORVANE_TIMES goes one JSON object per line: when the message loop is reached, and then
// the time of each message that was handled, with the host's own heap at its end. Either has the
// time of each subject of the system since the line before, in microseconds without what ran
// within it.
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "host_heap.h"
#include "launch/launch_sequence.h"
#include "platform/os.h"
#include "platform/real_os.h"
#include "support/counting_os.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace korvane::bench {
namespace {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::microseconds;

long long Count(Clock::duration time) {
  return std::chrono::duration_cast<Microseconds>(time).count();
}

// For one thread, the one that makes it; what others do isn't timed.
class Times {
 public:
  Times() {
    const char* const path = std::getenv("KORVANE_TIMES");
    lines_.open(path != nullptr ? path : "times");
  }

  void Begin(std::string_view name) {
    if (std::this_thread::get_id() != window_thread_) {
      return;
    }
    if (name == "WindowSystem.Next" && !in_loop_) {
      in_loop_ = true;
      WriteStart();
    }
    running_.push_back({Clock::now(), {}});
  }

  void End(std::string_view name) {
    if (std::this_thread::get_id() != window_thread_) {
      return;
    }
    const Clock::duration whole = Clock::now() - running_.back().begun;
    subjects_[std::string(name.substr(0, name.find('.')))] += whole - running_.back().within;
    running_.pop_back();
    if (!running_.empty()) {
      running_.back().within += whole;
    }
    if (name == "WindowSystem.Dispatch") {
      lines_ << R"({"message_us":)" << Count(whole) << R"(,"heap":)" << HostHeapBytes();
      WriteSubjects();
    }
  }

 private:
  struct Running {
    Clock::time_point begun;
    Clock::duration within;
  };

  void WriteStart() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    lines_ << R"({"loop_at_us":)" << std::chrono::duration_cast<Microseconds>(now).count()
           << R"(,"main_us":)" << Count(Clock::now() - begun_);
    WriteSubjects();
  }

  // Ends the line.
  void WriteSubjects() {
    for (const auto& [subject, time] : subjects_) {
      lines_ << ",\"" << subject << "\":" << Count(time);
    }
    lines_ << "}" << std::endl;
    subjects_.clear();
  }

  const std::thread::id window_thread_ = std::this_thread::get_id();
  const Clock::time_point begun_ = Clock::now();
  std::ofstream lines_;
  bool in_loop_ = false;
  std::vector<Running> running_;
  std::map<std::string, Clock::duration> subjects_;
};

int RunTimed() {
  // Workers outlive the end of the loop, and may still make operations.
  auto* const times = std::make_unique<Times>().release();
  test::CountingPlan plan;
  plan.traced = false;
  plan.counted = [times](const test::Operation& operation) {
    times->Begin(operation.name);
    return false;
  };
  plan.ended = [times](std::string_view name) { times->End(name); };
  auto* const counting =
      std::make_unique<test::CountingOs>(platform::RealOs(), std::move(plan)).release();
  const platform::ScopedOs in_force(counting->os());
  return RunLaunchSequence();
}

}  // namespace
}  // namespace korvane::bench

#ifdef _WIN32
int WINAPI wWinMain(HINSTANCE /*instance*/, HINSTANCE /*previous*/, PWSTR /*command_line*/,
                    int /*show_command*/) {
  return korvane::bench::RunTimed();
}
#else
int main() { return korvane::bench::RunTimed(); }
#endif
