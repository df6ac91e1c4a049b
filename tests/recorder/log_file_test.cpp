#include "recorder/log_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <thread>

#include "recorder/recorder_world.h"
#include "recorder/startup_recorder.h"

namespace korvane {
namespace {

using test::RecorderWorld;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// The line of an event as it was to be written, with the failure in it.
std::string Report(const std::string& stage, const std::string& name, std::uint32_t code) {
  return R"({"ms":0,"pid":)" + std::to_string(platform::os().process->Id()) + R"(,"run_id":")" +
         test::kFixedGuid + R"(","stage":")" + stage + R"(","recorder_failure":")" + name +
         R"(","os_error":)" + std::to_string(code) + "}";
}

// An event whose line has this many bytes, the line feed included.
void WriteLineOf(StartupRecorder& recorder, std::size_t bytes) {
  const std::string bare = R"({"ms":0,"pad":"","pid":)" +
                           std::to_string(platform::os().process->Id()) + R"(,"run_id":")" +
                           test::kFixedGuid + R"(","stage":"e"})" + "\n";
  recorder.Event("e", {{"pad", std::string(bytes - bare.size(), 'p')}});
}

TEST(LogFile, LinesLieInTheUsersDataFolderUnderTheNamedMutex) {
  RecorderWorld world;
  StartupRecorder recorder;
  recorder.Event("mutex", {{"already_exists", false}});

  EXPECT_EQ(world.LogPath().filename(), "startup.log");
  EXPECT_THAT(
      world.LogText(),
      HasSubstr(R"({"already_exists":false,"ms":0,"pid":)" +
                std::to_string(platform::os().process->Id()) +
                R"(,"run_id":"{9F2C5B1E-0A4D-4C3B-8E77-1D2F3A4B5C6D}","stage":"mutex"})" + "\n"));
  EXPECT_THAT(world.kernel_objects.mutex_names(), ElementsAre(L"Global\\Korvane_StartupLog"));
  EXPECT_THAT(world.kernel_objects.wait_bounds(), ElementsAre(100u, 100u));
  EXPECT_THAT(world.files.calls(), ElementsAre("Size", "Write", "Size", "Write"))
      << "a line costs one size and one write";
  EXPECT_THAT(world.errors.lines(), IsEmpty());
}

TEST(LogFile, FailedOpeningSilencesTheLogAndNothingElse) {
  struct Row {
    const char* name;
    std::uint32_t code;
    std::function<void(RecorderWorld&)> arrange;
  };
  const Row rows[] = {
      {"local_app_data_failed", 0x80070003,
       [](RecorderWorld& world) { world.process.local_data_error = 0x80070003; }},
      {"log_directory_failed", 5,
       [](RecorderWorld& world) { world.files.failures.Set("CreateDirectories", 5); }},
      {"log_mutex_create_failed", 6,
       [](RecorderWorld& world) { world.kernel_objects.failures.Set("CreateNamedMutex", 6); }},
      {"log_open_failed", 32, [](RecorderWorld& world) { world.files.failures.Set("Open", 32); }},
  };
  for (const Row& row : rows) {
    RecorderWorld world;
    row.arrange(world);
    StartupRecorder recorder;
    recorder.Event("mutex");
    recorder.RecordActivateRequest(1, false);

    const auto reports = world.errors.lines();
    ASSERT_EQ(reports.size(), 4u) << row.name;
    EXPECT_EQ(reports[0], Report("recorder_init", row.name, row.code));
    EXPECT_THAT(reports[1], HasSubstr(R"("stage":"process_start",)")) << row.name;
    EXPECT_EQ(reports[2], Report("mutex", "log_unavailable", 0)) << row.name;
    EXPECT_THAT(reports[3], HasSubstr(R"("recorder_failure":"log_unavailable","os_error":0})"));
    EXPECT_EQ(world.errors.debugger_texts()[0], reports[0] + "\n") << row.name;
    EXPECT_EQ(world.LogText(), "") << row.name;
    EXPECT_EQ(*flutter::Find(recorder.Snapshot(), "activated_before_first_raster"),
              flutter::EncodableValue(true))
        << row.name;
  }
}

TEST(LogFile, FolderThatIsNoTextIsAFailedFolder) {
  RecorderWorld world;
  world.process.local_data = world.process.local_data + L"/" + std::wstring(1, L'\xD800');
  world.files.failures.Set("CreateDirectories", 123);  // where the library takes such a name
  const StartupRecorder recorder;
  EXPECT_THAT(world.errors.lines().at(0), HasSubstr("\"log_directory_failed\""));
}

TEST(LogFile, EachFailureOfAWriteIsReportedOnceAndTheMutexIsLetGo) {
  struct Row {
    const char* name;
    std::uint32_t code;
    std::function<void(RecorderWorld&)> arrange;
    bool written;
    bool emptied;  // the full log made room for the line
    int releases;
  };
  const auto file_step = [](const char* operation, std::uint32_t error) {
    return [=](RecorderWorld& world) { world.files.failures.Set(operation, error); };
  };
  const auto wait = [](std::uint32_t result) {
    return [=](RecorderWorld& world) { world.kernel_objects.wait_result = result; };
  };
  const Row rows[] = {
      {"log_mutex_timeout", 0, wait(platform::kWaitTimeout), false, false, 0},
      {"log_mutex_wait_failed", 6,
       [](RecorderWorld& world) { world.kernel_objects.failures.Set("Wait", 6); }, false, false, 0},
      {"log_mutex_wait_failed", 0, wait(0xC0), false, false, 0},
      {"log_mutex_abandoned", 0, wait(platform::kWaitAbandoned), true, true, 1},
      {"log_size_failed", 1, file_step("Size", 1), true, false, 1},
      {"log_rotation_copy_failed", 32, file_step("Copy", 32), true, true, 1},
      {"log_rotation_seek_failed", 131, file_step("SeekToStart", 131), true, false, 1},
      {"log_rotation_truncate_failed", 1224, file_step("TruncateHere", 1224), true, false, 1},
      {"log_write_failed", 112, file_step("Write", 112), false, true, 1},
      {"log_mutex_release_failed", 288,
       [](RecorderWorld& world) { world.kernel_objects.failures.Set("ReleaseMutex", 288); }, true,
       true, 1},
  };
  for (const Row& row : rows) {
    RecorderWorld world;
    StartupRecorder recorder;
    world.FillLog(kLargestLog);
    const std::string full = world.LogText();
    const int releases = world.kernel_objects.releases();
    row.arrange(world);

    recorder.Event("mutex");

    EXPECT_THAT(world.errors.lines(), ElementsAre(Report("mutex", row.name, row.code)));
    EXPECT_THAT(world.errors.debugger_texts(),
                ElementsAre(Report("mutex", row.name, row.code) + "\n"));
    const std::string text = world.LogText();
    EXPECT_EQ(text.find(R"("stage":"mutex"})") != std::string::npos, row.written) << row.name;
    EXPECT_EQ(text.find(full) == std::string::npos, row.emptied) << row.name;
    EXPECT_EQ(world.kernel_objects.releases() - releases, row.releases) << row.name;
  }
}

TEST(LogFile, ShortWriteSaysHowManyBytesWentOut) {
  RecorderWorld world;
  StartupRecorder recorder;
  const std::string before = world.LogText();
  world.files.short_write = 7;

  recorder.Event("mutex");

  EXPECT_EQ(world.LogText(), before + R"({"ms":0)");
  EXPECT_THAT(world.errors.lines(), ElementsAre(Report("mutex", "log_short_write", 7)));
}

TEST(LogFile, AFailedRotationIsTheLastOneOfItsProcess) {
  for (const char* step : {"SeekToStart", "TruncateHere"}) {
    RecorderWorld world;
    StartupRecorder recorder;
    world.FillLog(kLargestLog);
    world.files.failures.Set(step, 1);
    recorder.Event("first");
    world.files.failures.Clear();

    recorder.Event("second");

    EXPECT_EQ(world.errors.lines().size(), 1u) << "no second report after " << step;
    EXPECT_GT(world.LogText().size(), kLargestLog) << "the log goes on growing";
    StartupRecorder another;
    EXPECT_LT(world.LogText().size(), kLargestLog) << "another recorder rotates as ever";
  }
}

TEST(LogFile, ALineThatJustFitsIsAppendedAndOneByteMoreRotates) {
  constexpr std::size_t kLine = 300;
  for (const std::size_t too_much : {0u, 1u}) {
    RecorderWorld world;
    StartupRecorder recorder;
    world.FillLog(kLargestLog - kLine + too_much);
    const std::string before = world.LogText();

    WriteLineOf(recorder, kLine);

    const std::string text = world.LogText();
    if (too_much == 0) {
      EXPECT_EQ(text.size(), kLargestLog);
      EXPECT_EQ(text.substr(0, before.size()), before);
      EXPECT_EQ(test::ReadBytes(world.RotatedPath()), std::nullopt);
    } else {
      EXPECT_EQ(text.size(), kLine);
      EXPECT_EQ(test::ReadBytes(world.RotatedPath()), before);
    }
    EXPECT_THAT(world.errors.lines(), IsEmpty());
  }
}

TEST(LogFile, RotationReplacesTheRotatedLogAndOpensNothingAnew) {
  RecorderWorld world;
  StartupRecorder recorder;
  StartupRecorder other_process;  // its handle lives through the rotation
  test::WriteBytes(world.RotatedPath(), std::string(400000, 'o'));
  world.FillLog(kLargestLog);

  recorder.Event("rotates");
  other_process.Event("appends");

  EXPECT_EQ(test::ReadBytes(world.RotatedPath())->size(), kLargestLog);
  EXPECT_THAT(world.Stages(), ElementsAre("rotates", "appends"));
}

TEST(LogFile, TheLargestLineIsWrittenAndOneByteMoreIsNot) {
  RecorderWorld world;
  StartupRecorder recorder;
  const std::string before = world.LogText();

  WriteLineOf(recorder, kLargestLine + 1);
  EXPECT_EQ(world.LogText(), before);
  const auto reports = world.errors.lines();
  ASSERT_EQ(reports.size(), 1u);
  const std::string failure = R"(,"recorder_failure":"log_line_too_large","os_error":0)";
  EXPECT_THAT(reports[0], HasSubstr(failure));
  EXPECT_EQ(reports[0].size() + 1, kLargestLine + 1 + failure.size()) << "the whole line is told";

  WriteLineOf(recorder, kLargestLine);
  EXPECT_EQ(world.LogText().size(), kLargestLine);
  EXPECT_EQ(test::ReadBytes(world.RotatedPath()), before) << "a log that isn't empty rotates first";
  EXPECT_EQ(world.errors.lines().size(), 1u);
}

TEST(LogFile, ClosingReportsEachHandleThatFails) {
  RecorderWorld world;
  {
    const StartupRecorder recorder;
    world.files.failures.Set("CloseFile", 6);
    world.kernel_objects.failures.Set("CloseMutex", 7);
    EXPECT_THAT(world.errors.lines(), IsEmpty());
  }
  EXPECT_THAT(world.errors.lines(),
              ElementsAre(Report("recorder_close", "log_close_failed", 6),
                          Report("recorder_close", "log_mutex_close_failed", 7)));
  EXPECT_THAT(world.Stages(), ElementsAre("process_start"))
      << "recorder_init and recorder_close never reach the file";
}

TEST(LogFile, ALineAfterTheEndIsReportedAndHarmless) {
  RecorderWorld world;
  StartupRecorder recorder;
  recorder.Close();
  recorder.Close();
  recorder.Event("late");
  EXPECT_THAT(world.errors.lines(), ElementsAre(Report("late", "log_unavailable", 0)));
  EXPECT_THAT(world.Stages(), ElementsAre("process_start"));
}

TEST(LogFileDeathTest, TheOneRecorderClosesItsLogAtExit) {
  EXPECT_EXIT(
      {
        // Made first, so that it is there until everything else at exit has run.
        static RecorderWorld world;
        world.files.failures.Set("CloseFile", 6);
        std::atexit([] {
          for (const std::string& line : world.errors.lines()) {
            std::fprintf(stderr, "%s\n", line.c_str());
          }
        });
        StartupRecorder::instance().Event("mutex");
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "recorder_close.*log_close_failed.*6");
}

TEST(LogFile, SlowWritesDontStallTheSnapshot) {
  RecorderWorld world;
  StartupRecorder recorder;
  std::size_t keys_during_write = 0;
  world.files.before_write = [&] { keys_during_write = recorder.Snapshot().size(); };
  recorder.Event("mutex");  // would stand still here if the lock were held
  EXPECT_EQ(keys_during_write, recorder.Snapshot().size());
}

TEST(LogFile, ThreadsWriteWholeLinesWhileOneOfThemCloses) {
  constexpr int kThreads = 4;
  constexpr int kEvents = 200;
  RecorderWorld world;
  StartupRecorder recorder;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&recorder, thread] {
      for (int event = 0; event < kEvents; ++event) {
        recorder.RecordDisplayEvent("WM_WTSSESSION_CHANGE", {{"code", std::int64_t{thread}}});
        if (thread == 0 && event == kEvents / 2) {
          recorder.Close();
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  const std::size_t written = world.Lines().size() - 1;  // process_start
  EXPECT_EQ(written + world.errors.lines().size(), std::size_t{kThreads * kEvents})
      << "each line was written whole or reported";
  EXPECT_GT(written, 0u);
}

}  // namespace
}  // namespace korvane
