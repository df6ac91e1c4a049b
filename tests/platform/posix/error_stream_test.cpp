#include "platform/error_stream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <bitset>
#include <functional>

#include "platform/real_os.h"
#include "support/standard_error.h"

namespace korvane::platform {
namespace {

// Runs the body in a child process, whose standard error it may take apart; true when the child
// came to its end.
bool RunsToItsEnd(const std::function<void()>& body) {
  const pid_t child = ::fork();
  if (child == 0) {
    body();
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(PosixErrorStream, ReaderThatIsGoneDoesNotEndTheProcess) {
  EXPECT_TRUE(RunsToItsEnd([] {
    ::signal(SIGPIPE, SIG_DFL);
    std::array<int, 2> pipe{};
    if (::pipe(pipe.data()) != 0 || ::dup2(pipe[1], STDERR_FILENO) < 0) {
      ::_exit(1);
    }
    ::close(pipe[0]);
    RealErrorStream().WriteLine("nobody reads this");
    sigset_t pending;
    ::sigpending(&pending);
    if (::sigismember(&pending, SIGPIPE) != 0) {
      ::_exit(2);
    }
  }));
}

TEST(PosixErrorStream, StreamMadeNonBlockingLosesNothing) {
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe(pipe.data()), 0);
  ASSERT_EQ(::fcntl(pipe[1], F_SETFL, O_NONBLOCK), 0);
  const std::string line(1'000'000, 'x');
  const pid_t writer = ::fork();
  if (writer == 0) {
    ::dup2(pipe[1], STDERR_FILENO);
    RealErrorStream().WriteLine(line);
    ::_exit(0);
  }
  ::close(pipe[1]);
  std::string text;
  std::array<char, 4096> buffer{};
  for (ssize_t got = 0; (got = ::read(pipe[0], buffer.data(), buffer.size())) > 0;) {
    text.append(buffer.data(), static_cast<std::size_t>(got));
  }
  ::close(pipe[0]);
  ::waitpid(writer, nullptr, 0);
  EXPECT_TRUE(text == line + "\n");
}

// The descriptors that a child would inherit.
std::bitset<256> InheritedDescriptors() {
  std::bitset<256> inherited;
  for (std::size_t descriptor = 0; descriptor < inherited.size(); ++descriptor) {
    const int flags = ::fcntl(static_cast<int>(descriptor), F_GETFD);
    inherited[descriptor] = flags >= 0 && (flags & FD_CLOEXEC) == 0;
  }
  return inherited;
}

TEST(PosixErrorStream, SilencedStreamIsKeptFromChildrenAndTheyGetTheNullDevice) {
  EXPECT_TRUE(RunsToItsEnd([] {
    const auto before = InheritedDescriptors();
    const bool silenced = static_cast<bool>(RealErrorStream().SilenceStandardError());
    ::_exit(silenced && InheritedDescriptors() == before ? 0 : 1);
  }));
}

TEST(PosixErrorStream, ProcessWithoutAStreamCanBeSilenced) {
  EXPECT_TRUE(RunsToItsEnd([] {
    ::close(STDERR_FILENO);
    RealErrorStream().WriteLine("nowhere");
    if (!RealErrorStream().SilenceStandardError()) {
      ::_exit(1);
    }
    RealErrorStream().WriteLine("nowhere still");
    const ssize_t taken = ::write(STDERR_FILENO, "x", 1);  // the null device takes it
    ::_exit(taken == 1 && (::fcntl(STDERR_FILENO, F_GETFD) & FD_CLOEXEC) == 0 ? 0 : 2);
  }));
}

}  // namespace
}  // namespace korvane::platform
