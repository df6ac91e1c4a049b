#include "support/host_driver/child_streams.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace korvane::test {

ChildStreams::ChildStreams(int pid, int output, int errors)
    : pid_(pid), output_{output, {}, {}}, errors_{errors, {}, {}} {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe");
  }
  stop_reading_ = ends[0];
  stop_writing_ = ends[1];
  fcntl(output, F_SETFL, O_NONBLOCK);
  fcntl(errors, F_SETFL, O_NONBLOCK);
  reader_ = std::thread([this] { ReadStreams(); });
  waiter_ = std::thread([this] { WaitForChild(); });
}

ChildStreams::~ChildStreams() {
  waiter_.join();
  reader_.join();
  for (const int descriptor :
       {stop_reading_, stop_writing_, output_.descriptor, errors_.descriptor}) {
    close(descriptor);
  }
}

std::optional<std::string> ChildStreams::WaitForLine(std::size_t number,
                                                     std::chrono::milliseconds patience) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, patience, [&] { return drained_ || output_.lines.size() > number; });
  if (output_.lines.size() <= number) {
    return std::nullopt;
  }
  return output_.lines[number];
}

std::optional<int> ChildStreams::WaitForExit(std::chrono::milliseconds patience) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, patience, [&] { return drained_; });
  return drained_ ? exit_code_ : std::nullopt;
}

void ChildStreams::Signal(int signal) {
  const std::lock_guard lock(mutex_);
  if (!exit_code_) {
    kill(-pid_, signal);
  }
}

std::vector<std::string> ChildStreams::lines() const {
  const std::lock_guard lock(mutex_);
  return output_.lines;
}

std::vector<std::string> ChildStreams::error_lines() const {
  const std::lock_guard lock(mutex_);
  return errors_.lines;
}

void ChildStreams::WaitForChild() {
  // Seen first and reaped under the lock, so that Signal never meets another process's id.
  siginfo_t facts{};
  while (waitid(P_PID, static_cast<id_t>(pid_), &facts, WEXITED | WNOWAIT) == -1 &&
         errno == EINTR) {
  }
  {
    const std::lock_guard lock(mutex_);
    int status = 0;
    waitpid(pid_, &status, 0);
    exit_code_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  const char stop = 0;
  while (write(stop_writing_, &stop, 1) == -1 && errno == EINTR) {
  }
}

// Reads until the child has ended; what its own children write later is nobody's.
void ChildStreams::ReadStreams() {
  for (bool running = true; running;) {
    std::array<pollfd, 3> polled{{{stop_reading_, POLLIN, 0},
                                  {output_.open ? output_.descriptor : -1, POLLIN, 0},
                                  {errors_.open ? errors_.descriptor : -1, POLLIN, 0}}};
    poll(polled.data(), polled.size(), -1);
    running = polled[0].revents == 0;
    output_.open = output_.open && Take(output_);
    errors_.open = errors_.open && Take(errors_);
  }
  Finish(output_);
  Finish(errors_);
  const std::lock_guard lock(mutex_);
  drained_ = true;
  changed_.notify_all();
}

bool ChildStreams::Take(Stream& stream) {
  std::array<char, 65536> buffer;
  for (;;) {
    const auto count = read(stream.descriptor, buffer.data(), buffer.size());
    if (count < 0) {
      return errno == EAGAIN || errno == EINTR;
    }
    if (count == 0) {
      return false;
    }
    std::string_view left(buffer.data(), static_cast<std::size_t>(count));
    const std::lock_guard lock(mutex_);
    for (auto feed = left.find('\n'); feed != std::string_view::npos; feed = left.find('\n')) {
      stream.rest.append(left.substr(0, feed));
      if (stream.rest.ends_with('\r')) {
        stream.rest.pop_back();
      }
      stream.lines.push_back(std::exchange(stream.rest, {}));
      left.remove_prefix(feed + 1);
    }
    stream.rest.append(left);
    changed_.notify_all();
  }
}

void ChildStreams::Finish(Stream& stream) {
  const std::lock_guard lock(mutex_);
  if (!stream.rest.empty()) {
    stream.lines.push_back(std::exchange(stream.rest, {}));
  }
}

}  // namespace korvane::test
