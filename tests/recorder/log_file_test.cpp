#include "recorder/log_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <thread>

#include "recorder/recorder_world.h"
#include "recorder/startup_recorder.h"

namespace korvane {
namespace {

using test::RecorderWorld;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// A line without fields, as it is told when this failure befell it; or as it is written.
std::string Report(const std::string& stage, const std::string& failure, std::uint32_t code) {
  return R"({"ms":0,"pid":)" + std::to_string(platform::RealOs().process->Id()) + R"(,"run_id":")" +
         test::kRunId + R"(","stage":")" + stage + R"(","recorder_failure":")" + failure +
         R"(","os_error":)" + std::to_string(code) + "}";
}
std::string Line(const std::string& stage) {
  const std::string report = Report(stage, "", 0);
  return report.substr(0, report.find(",\"recorder_failure")) + "}\n";
}

// An event whose line has this many bytes, the line feed included.
void WriteLineOf(StartupRecorder& recorder, std::size_t bytes) {
  const std::size_t rest = Line("e").size() + std::string_view(R"("pad":"",)").size();
  recorder.Event("e", {{"pad", std::string(bytes - rest, 'p')}});
}

TEST(LogFile, ALineCostsOneSizeAndOneWriteUnderTheNamedMutex) {
  RecorderWorld world;
  StartupRecorder recorder;
  recorder.Event("show_window");
  EXPECT_THAT(world.LogText(), ::testing::EndsWith("\n" + Line("show_window")));
  EXPECT_THAT(world.kernel_objects.names, ElementsAre(L"Global\\Korvane_StartupLog"));
  EXPECT_THAT(world.FileCalls(),
              ElementsAre("CreateDirectories", "Open", "Size", "Write", "Size", "Write"));
  EXPECT_THAT(world.errors.lines(), IsEmpty());
}

TEST(LogFile, FailedOpeningSilencesTheLogAndNothingElse) {
  const std::pair<const char*, const char*> rows[] = {
      {"Process.LocalApplicationData", "local_app_data_failed"},
      {"Files.CreateDirectories", "log_directory_failed"},
      {"KernelObjects.CreateNamedMutex", "log_mutex_create_failed"},
      {"Files.Open", "log_open_failed"},
  };
  for (const auto& [operation, name] : rows) {
    RecorderWorld world(std::nullopt, /*error=*/0x80070003);
    world.failing = operation;
    StartupRecorder recorder;
    recorder.Event("show_window");
    recorder.RecordActivateRequest(1, false);

    const auto reports = world.errors.lines();
    ASSERT_EQ(reports.size(), 4u) << name;
    EXPECT_EQ(reports[0], Report("recorder_init", name, 0x80070003));
    EXPECT_EQ(world.errors.debugger_texts()[0], reports[0] + "\n");
    EXPECT_THAT(reports[1], HasSubstr(R"("stage":"process_start",)"));
    EXPECT_EQ(reports[2], Report("show_window", "log_unavailable", 0));
    EXPECT_THAT(reports[3], HasSubstr(R"("recorder_failure":"log_unavailable","os_error":0})"));
    EXPECT_EQ(world.LogText(), "");
    EXPECT_EQ(*flutter::Find(recorder.Snapshot(), "activated_before_first_raster"),
              flutter::EncodableValue(true));
  }
}

TEST(LogFile, EachFailureOfAWriteIsReportedOnceAndTheMutexIsLetGo) {
  struct Row {
    const char* operation;
    const char* name;
    bool written;
    bool emptied;  // the full log made room for the line
    bool lets_go;
  };
  const Row rows[] = {
      {"KernelObjects.Wait", "log_mutex_wait_failed", false, false, true},
      {"Files.Size", "log_size_failed", true, false, true},
      {"Files.Copy", "log_rotation_copy_failed", true, true, true},
      {"Files.SeekToStart", "log_rotation_seek_failed", true, false, true},
      {"Files.TruncateHere", "log_rotation_truncate_failed", true, false, true},
      {"Files.Write", "log_write_failed", false, true, true},
      {"KernelObjects.ReleaseMutex", "log_mutex_release_failed", true, true, false},
  };
  for (const Row& row : rows) {
    RecorderWorld world;
    StartupRecorder recorder;
    world.FillLog(kLargestLog);
    world.failing = row.operation;

    recorder.Event("show_window");

    EXPECT_THAT(world.errors.lines(), ElementsAre(Report("show_window", row.name, 5)));
    const std::string text = world.LogText();
    EXPECT_EQ(text.find(Line("show_window")) != std::string::npos, row.written) << row.name;
    EXPECT_EQ(text.size() < kLargestLog, row.emptied) << row.name;

    // Another thread gets the mutex, or times out.
    world.failing = "";
    world.kernel_objects.bounded = !row.lets_go;
    std::thread([&recorder] { recorder.Event("another_thread"); }).join();
    EXPECT_EQ(world.errors.HasText("log_mutex_timeout\",\"os_error\":0}"), !row.lets_go)
        << row.name;
    EXPECT_EQ(world.LogText().find("another_thread") != std::string::npos, row.lets_go) << row.name;
  }
}

TEST(LogFile, AFailedRotationIsTheLastOneOfItsProcess) {
  for (const char* step : {"Files.SeekToStart", "Files.TruncateHere"}) {
    RecorderWorld world;
    StartupRecorder recorder;
    world.FillLog(kLargestLog);
    world.failing = step;
    recorder.Event("first");
    world.failing = "";
    recorder.Event("second");
    EXPECT_EQ(world.errors.lines().size(), 1u) << step;
    EXPECT_GT(world.LogText().size(), kLargestLog) << "the log goes on growing";
    const StartupRecorder another;
    EXPECT_LT(world.LogText().size(), kLargestLog) << "another recorder rotates as ever";
  }
}

TEST(LogFile, ALineThatJustFitsIsAppendedAndOneByteMoreRotates) {
  RecorderWorld world;
  StartupRecorder recorder;
  StartupRecorder other_process;  // its handle lives through the rotation
  test::WriteBytes(world.RotatedPath(), std::string(400000, 'o'));
  world.FillLog(kLargestLog - 300);
  WriteLineOf(recorder, 300);
  EXPECT_EQ(world.LogText().size(), kLargestLog);
  EXPECT_EQ(test::ReadBytes(world.RotatedPath())->size(), 400000u);

  world.FillLog(kLargestLog - 300 + 1);
  const std::string before = world.LogText();
  WriteLineOf(recorder, 300);
  EXPECT_EQ(world.LogText().size(), 300u);
  EXPECT_EQ(test::ReadBytes(world.RotatedPath()), before);

  other_process.Event("appends");
  EXPECT_THAT(world.Stages(), ElementsAre("e", "appends"));
}

TEST(LogFile, TheLargestLineIsWrittenAndOneByteMoreIsNot) {
  RecorderWorld world;
  StartupRecorder recorder;
  const std::string before = world.LogText();

  WriteLineOf(recorder, kLargestLine + 1);
  EXPECT_EQ(world.LogText(), before);
  const std::string failure = R"(,"recorder_failure":"log_line_too_large","os_error":0)";
  const auto reports = world.errors.lines();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_THAT(reports[0], HasSubstr(failure));
  EXPECT_EQ(reports[0].size() + 1, kLargestLine + 1 + failure.size()) << "the whole line is told";

  WriteLineOf(recorder, kLargestLine);
  EXPECT_EQ(world.LogText().size(), kLargestLine);
  EXPECT_EQ(test::ReadBytes(world.RotatedPath()), before) << "a log that isn't empty rotates first";
}

TEST(LogFile, ADeadOwnerOfTheLogIsReportedAndTheLineWritten) {
  RecorderWorld world;
  StartupRecorder recorder;
  platform::CreatedMutex held;
  std::thread([&] {
    held = world.kernel_objects.CreateNamedMutex(L"Global\\Korvane_StartupLog", false);
    EXPECT_EQ(world.kernel_objects.Wait(held.handle, 100).result, platform::kWaitSignalled);
  }).join();
  recorder.Event("mutex");
  EXPECT_THAT(world.errors.lines(), ElementsAre(Report("mutex", "log_mutex_abandoned", 0)));
  EXPECT_EQ(world.LastLine().at("stage"), "mutex");
}

TEST(LogFile, ShortWriteSaysHowManyBytesWentOut) {
  struct FullDisk : test::MemoryFiles {
    platform::Result<std::size_t> Write(platform::File& file, std::string_view bytes) override {
      return MemoryFiles::Write(file, bytes.substr(0, 7));
    }
  };
  RecorderWorld world;
  FullDisk files;
  platform::Os os = platform::os();
  os.files = &files;
  const platform::ScopedOs scope(os);
  StartupRecorder recorder;
  world.errors.Clear();
  recorder.Event("show_window");
  EXPECT_THAT(world.errors.lines(), ElementsAre(Report("show_window", "log_short_write", 7)));
}

TEST(LogFile, ClosingReportsWhatFailsAndLeavesALaterLineHarmless) {
  for (const auto& [operation, name] :
       {std::pair("Files.Close", "log_close_failed"),
        std::pair("KernelObjects.Close", "log_mutex_close_failed")}) {
    RecorderWorld world;
    StartupRecorder recorder;
    world.failing = operation;
    recorder.Close();
    recorder.Close();
    recorder.Event("late");
    EXPECT_THAT(world.errors.lines(), ElementsAre(Report("recorder_close", name, 5),
                                                  Report("late", "log_unavailable", 0)));
    EXPECT_THAT(world.Stages(), ElementsAre("process_start"))
        << "recorder_init and recorder_close never reach the file";
  }
}

TEST(LogFileDeathTest, TheOneRecorderClosesItsLogAtExit) {
  EXPECT_EXIT(
      {
        // Made first, so that it is there until everything else at exit has run.
        static RecorderWorld world;
        std::atexit([] {
          for (const std::string& line : world.errors.lines()) {
            std::fprintf(stderr, "%s\n", line.c_str());
          }
        });
        StartupRecorder::instance().Event("show_window");
        world.failing = "Files.Close";
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "recorder_close.*log_close_failed.*5");
}

TEST(LogFile, SlowWritesDontStallTheSnapshot) {
  const RecorderWorld world;
  StartupRecorder recorder;
  std::size_t keys_during_write = 0;
  test::CountingOs stopping(
      platform::os(),
      test::StopAt(
          1, [&] { keys_during_write = recorder.Snapshot().size(); },
          [](const test::Operation& operation) { return operation.name == "Files.Write"; }));
  const platform::ScopedOs scope(stopping.os());
  recorder.Event("show_window");  // would stand still here if the lock were held
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
