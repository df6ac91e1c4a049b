#include "diagnostics_evidence/crash_summary.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "diagnostics_evidence/evidence_room.h"

namespace korvane {
namespace {

using test::EvidenceRoom;
using Texts = std::vector<std::string>;

IncidentRow Row(const std::string& id, const std::string& reason = "unexplained") {
  IncidentRow row;
  row.id = id;
  row.reason = reason;
  return row;
}

TEST(CrashSummary, EachLineIsReadAsJsonOrByItsWords) {
  struct Case {
    const char* line;
    const char* level;
    const char* msg;
    const char* time;
  };
  const Case cases[] = {
      {"start failed", "info", "start failed", ""},
      {"2024 an ERROR here", "error", "2024 an ERROR here", ""},
      {"Panic: x", "error", "Panic: x", ""},
      {"a debug error", "error", "a debug error", ""},
      {"WARNed in debug", "warning", "WARNed in debug", ""},
      {"Debug only", "debug", "Debug only", ""},
      {R"({"level":"fatal","msg":"say \"x\"","time":"t"})", "fatal", "say \"x\"", "t"},
      {R"({"level":"ERROR","msg":"","time":7})", "ERROR", "", ""},
      {R"({"msg":"error here"})", "info", "error here", ""},
      {R"({"msg":"cut)", "info", R"({"msg":"cut)", ""},
      {R"( {"level":"fatal"})", "error", R"( {"level":"fatal"})", ""},
      {R"({"msg":"dial 1.2.3.4"})", "info", "dial [ip]", ""},
  };
  EvidenceRoom room;
  const std::string path = room.state.base_dir + "a.log";
  std::string log = "\n\n";
  for (const Case& c : cases) {
    log += std::string(c.line) + "\n\n";
  }
  room.Put(path, log + "last without a line feed");

  const auto entries = parseCrashLog(path);
  ASSERT_EQ(entries.size(), std::size(cases) + 1);
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    EXPECT_EQ(entries[i].level, cases[i].level) << cases[i].line;
    EXPECT_EQ(entries[i].msg, cases[i].msg) << cases[i].line;
    EXPECT_EQ(entries[i].time, cases[i].time) << cases[i].line;
  }
  EXPECT_EQ(entries.back().msg, "last without a line feed");
}

// The filter undoes the encoding before the log is cut into lines.
TEST(CrashSummary, AnEncodedLineFeedEndsALine) {
  EvidenceRoom room;
  const std::string path = room.state.base_dir + "a.log";
  room.Put(path, R"(a panic\u000Adebug)");

  const auto entries = parseCrashLog(path);
  ASSERT_EQ(entries.size(), 2U);
  EXPECT_EQ(entries[0].msg + "|" + entries[1].msg, "a panic|debug");
}

TEST(CrashSummary, TheSentenceIsTheLastErrorThenTheLastTellingWordThenTheLastLine) {
  const auto entry = [](const char* level, const char* msg) {
    return CrashLogEntry{"", msg, level};
  };
  const std::pair<std::vector<CrashLogEntry>, const char*> rows[] = {
      {{}, "Unknown crash - no log entries captured"},
      {{entry("info", "a"), entry("info", "b")}, "b"},
      {{entry("info", "Start FAILED"), entry("debug", "done")}, "Start FAILED"},
      {{entry("info", "timeout exceeded"), entry("ERROR", "VLESS: x"), entry("info", "z")},
       "VLESS: x"},
      {{entry("error", "old"), entry("fatal", "new"), entry("info", "panic"), entry("", "z")},
       "new"},
      {{entry("info", "an abort"), entry("warning", "an error without its colon")}, "an abort"},
  };
  for (const auto& [entries, sentence] : rows) {
    EXPECT_EQ(summarise(entries), sentence);
  }
}

TEST(CrashSummary, OneUnexplainedIncidentIsToldOnceAndTheNewestFirst) {
  EvidenceRoom room;
  const std::vector<IncidentRow> rows = {Row("4-clean", "clean"), Row("3-new"), Row("2-old")};
  room.Put(room.Incident("4-clean") + "session.log", "error: never told\n");
  room.Put(room.Incident("3-new") + "session.log", "1\n2\n3\n4\nerror at 1.2.3.4\n6\n7\n");
  room.Put(room.Incident("2-old") + "legacy_last_crash.log", "old panic\n");

  const auto newest = SummariseNewestCrash(room.state.incidents_dir, rows);
  ASSERT_TRUE(newest.has_value());
  EXPECT_EQ(newest->summary, "error at [ip]");
  EXPECT_EQ(newest->log_count, 7);
  EXPECT_EQ(newest->last_logs, (Texts{"3", "4", "error at [ip]", "6", "7"}));
  EXPECT_EQ(room.Get(room.Incident("3-new") + "crash_log_consumed"), test::kNow);

  const auto older = SummariseNewestCrash(room.state.incidents_dir, rows);
  ASSERT_TRUE(older.has_value());
  EXPECT_EQ(older->summary, "old panic");
  EXPECT_EQ(older->last_logs, Texts{"old panic"});

  EXPECT_FALSE(SummariseNewestCrash(room.state.incidents_dir, rows).has_value());
  EXPECT_EQ(room.errors.lines(),
            (Texts{"[LibboxLogBuffer] Crash recovery from incident 3-new: 7 logs",
                   "[LibboxLogBuffer] Crash recovery from incident 2-old: 1 logs"}));
}

TEST(CrashSummary, AnIncidentWithoutATellableLogIsMarkedAndEndsTheCall) {
  const std::string unparseable =
      "[LibboxLogBuffer] Incident 2 has an empty or unparseable log; kept as unexplained";
  struct Case {
    const char* name;
    const char* log;
    Texts said;
  };
  const Case cases[] = {
      {"session.log", "\n\n", {unparseable}},
      {"other.log", "error\n", {}},
  };
  for (const Case& c : cases) {
    EvidenceRoom room;
    room.Put(room.Incident("2") + c.name, c.log);
    room.Put(room.Incident("1") + "session.log", "older\n");
    const std::vector<IncidentRow> rows = {Row("2"), Row("1")};
    EXPECT_FALSE(SummariseNewestCrash(room.state.incidents_dir, rows).has_value());
    EXPECT_EQ(room.errors.lines(), c.said);
    EXPECT_EQ(room.Get(room.Incident("2") + "crash_log_consumed"), test::kNow);
    EXPECT_EQ(SummariseNewestCrash(room.state.incidents_dir, rows)->summary, "older");
  }
}

}  // namespace
}  // namespace korvane
