#include "support/second_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>

#include "support/scoped_environment.h"

namespace korvane::test {

namespace {

std::array<int, 2> Pipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe");
  }
  return ends;
}

}  // namespace

struct SecondProcess::Native {
  pid_t process = -1;
  int to = -1;
  int from = -1;

  ~Native() {
    CloseInput();
    close(from);
  }

  void CloseInput() {
    if (to != -1) {
      close(to);
      to = -1;
    }
  }

  int Wait() {
    int status = 0;
    while (process != -1 && waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    process = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
};

SecondProcess::SecondProcess(const std::string& role) : native_(std::make_unique<Native>()) {
  const std::array<int, 2> input = Pipe();
  const std::array<int, 2> output = Pipe();
  native_->to = input[1];
  native_->from = output[0];
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  const ScopedEnvironment playing("KORVANE_TEST_ROLE", role);
  std::array<char*, 2> arguments = {const_cast<char*>("test"), nullptr};  // NOLINT: only read
  const int failure = posix_spawn(&native_->process, "/proc/self/exe", &actions, nullptr,
                                  arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(input[0]);
  close(output[1]);
  if (failure != 0) {
    native_->process = -1;
    throw std::runtime_error("no second process");
  }
}

SecondProcess::~SecondProcess() {
  if (native_->process != -1) {
    Kill();
  }
}

std::uint32_t SecondProcess::id() const { return static_cast<std::uint32_t>(native_->process); }

void SecondProcess::Say(std::string_view line) {
  const std::string whole = std::string(line) + "\n";
  if (write(native_->to, whole.data(), whole.size()) != static_cast<ssize_t>(whole.size())) {
    throw std::runtime_error("the second process doesn't listen");
  }
}

bool SecondProcess::ReadMore() {
  std::array<char, 4096> block{};
  const ssize_t got = read(native_->from, block.data(), block.size());
  if (got <= 0) {
    return false;
  }
  unread_.append(block.data(), static_cast<std::size_t>(got));
  return true;
}

void SecondProcess::Kill() {
  kill(native_->process, SIGKILL);
  native_->Wait();
}

int SecondProcess::Finish() {
  native_->CloseInput();
  return native_->Wait();
}

}  // namespace korvane::test
