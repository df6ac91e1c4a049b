#include "platform/error_stream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "platform/real_os.h"
#include "support/standard_error.h"

namespace korvane::platform {
namespace {

// What reached the standard error stream, without the carriage returns of Windows' text mode.
class Capture {
 public:
  Capture() { testing::internal::CaptureStderr(); }
  std::string Take() {
    std::string text = testing::internal::GetCapturedStderr();
    std::erase(text, '\r');
    return text;
  }
};

TEST(ErrorStream, LinesAreWrittenWholeWithOneEndEach) {
  Capture capture;
  RealErrorStream().WriteLine("[INFO] first");
  RealErrorStream().WriteLine("");
  RealErrorStream().WriteLine("\xE2\x80\x94 two\nlines");
  RealErrorStream().WriteLine(std::string(100'000, 'x'));
  EXPECT_EQ(capture.Take(),
            "[INFO] first\n\n\xE2\x80\x94 two\nlines\n" + std::string(100'000, 'x') + "\n");
}

TEST(ErrorStream, SilencingCutsOffLibrariesAndNotTheHost) {
  Capture capture;
  test::WriteAsLoadedLibrary("library before\n");
  RealErrorStream().WriteLine("host before");
  ASSERT_TRUE(RealErrorStream().SilenceStandardError());
  ASSERT_TRUE(RealErrorStream().SilenceStandardError());
  test::WriteAsLoadedLibrary("library after\n");
  RealErrorStream().WriteLine("host after");
  RealErrorStream().WriteToDebugger("no stream of ours");
  EXPECT_EQ(capture.Take(), "library before\nhost before\nhost after\n");
}

TEST(ErrorStream, LinesOfThreadsNeverMix) {
  constexpr int kThreads = 4;
  constexpr int kLines = 100;
  Capture capture;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([thread] {
      for (int line = 0; line < kLines; ++line) {
        RealErrorStream().WriteLine(std::string(5000, static_cast<char>('a' + thread)));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  const std::string text = capture.Take();
  ASSERT_EQ(text.size(), std::size_t{kThreads} * kLines * 5001);
  for (std::size_t begin = 0; begin < text.size(); begin += 5001) {
    EXPECT_EQ(text[begin + 5000], '\n');
    EXPECT_EQ(text.find_first_not_of(text[begin], begin), begin + 5000);
  }
}

}  // namespace
}  // namespace korvane::platform
