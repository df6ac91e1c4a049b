#include "diagnostics_evidence/privacy_migration.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "diagnostics_evidence/evidence_room.h"
#include "support/counting_os.h"
#include "support/small_stack.h"

namespace korvane {
namespace {

using namespace std::string_literals;
using test::EvidenceRoom;

constexpr char kRawLog[] = "dial tcp 1.2.3.4:443: timeout\nok\n";
constexpr char kCleanLog[] = "dial tcp [ip]: timeout\nok\n";

TEST(PrivacyMigration, FilesAreCleanedToTheByteAndOnlyOnce) {
  struct Row {
    const char* name;
    std::string before;
    std::string after;
  };
  std::string clean_lines;  // more than is read at once
  while (clean_lines.size() < 300'000) {
    clean_lines += "a line with nothing in it\n";
  }
  const Row rows[] = {
      {"a.log", kRawLog, kCleanLog},
      {"a.log", kRawLog + clean_lines, kCleanLog + clean_lines},
      {"a.log", clean_lines + kRawLog, clean_lines + kCleanLog},
      {"a.log", "", ""},
      {"a.log", "\n\nplain\n\n", "\n\nplain\n\n"},
      {"a.log", "no line feed, ws://h.t/c", "no line feed, [url]"},
      {"a.log", "first\r\n1.2.3.4\r\n", "first\n[ip]\n"},
      {"a.log", "caf\xE9\n\0nul\n"s, "caf\xC3\xA9\nnul\n"},
      {"crash-output.s.log", "crash-output armed 1.2.3.4\n\x1B[31mpanic\x1B[0m\n",
       "crash-output armed [ip]\npanic\n"},
      {"manifest.json", R"({"reason":"1.2.3.4","close_error":"at 1.2.3.4"})",
       R"({"reason":"1.2.3.4","close_error":"at [ip]"})"},
      {"manifest.json", "{\n\"close_error\"\t:\n \"ok\"}", "{\n\"close_error\"\t:\n \"ok\"}"},
      {"a.json", R"({"close_error":"1.2.3.4","n":{"close_error" : "[::1]:80"}})",
       R"({"close_error":"[ip]","n":{"close_error" : "[[ip]]:80"}})"},
      {"a.json", R"({"close_error":"say \"node.test:8443\"\n"})",
       R"({"close_error":"say \"[host]\"\n"})"},
      {"a.json", R"({"close_error":"http:\/\/h\/p \u0041\u4e2d"})",
       R"({"close_error":"[url] A\\u4e2d"})"},
      {"a.json", R"({"close_error":"","other":"1.2.3.4"})",
       R"({"close_error":"","other":"1.2.3.4"})"},
      {"a.txt", kRawLog, kRawLog},
      {"a.LOG", kRawLog, kRawLog},
      {"pending", kRawLog, kRawLog},
      {"a.log.tmp", kRawLog, kRawLog},
  };
  for (const Row& row : rows) {
    EvidenceRoom room;
    const std::string path = room.state.base_dir + row.name;
    room.Put(path, row.before);
    EXPECT_TRUE(migrateEvidenceFile(path)) << row.before;
    EXPECT_EQ(room.Get(path), row.after);

    test::CountingOs second(platform::os());
    {
      const platform::ScopedOs in_force(second.os());
      EXPECT_TRUE(migrateEvidenceFile(path));
    }
    for (const std::string& operation : second.trace()) {
      EXPECT_TRUE(operation == "Files.Open" || operation == "Files.Read" ||
                  operation == "Files.Close" || operation.starts_with("TextEncoding."))
          << row.name << ": " << operation;
    }
    EXPECT_TRUE(room.errors.lines().empty());
  }
}

TEST(PrivacyMigration, MetadataWithoutATextBehindItsKeyIsWithheld) {
  EvidenceRoom room;
  const std::string path = room.state.base_dir + "manifest.json";
  for (const char* text :
       {R"({"close_error")", R"({"close_error":)", R"({"close_error":7})", R"({"close_error":"cut)",
        R"({"close_error":"x\"})", R"({"reason":"close_error","close_error":"1.2.3.4"})"}) {
    room.Put(path, text);
    room.errors.Clear();
    EXPECT_FALSE(migrateEvidenceFile(path)) << text;
    EXPECT_EQ(room.errors.lines(),
              std::vector<std::string>{"[LibboxLogBuffer] Privacy metadata parse failed"});
    EXPECT_EQ(room.Get(path), text);
  }
  EXPECT_FALSE(migrateEvidenceFile(room.state.base_dir + "absent.json"));
  EXPECT_EQ(room.errors.lines().back(), "[LibboxLogBuffer] Privacy migration read failed");
}

TEST(PrivacyMigration, NoLengthOverflowsTheStackOrTakesItsSquareOfTime) {
  EvidenceRoom room;
  const std::string log = room.state.base_dir + "a.log";
  const std::string json = room.state.base_dir + "a.json";
  constexpr std::size_t kBytes = std::size_t{1} << 21;
  room.Put(log, std::string(kBytes, 'a'));
  std::string keys;
  while (keys.size() < kBytes) {
    keys += R"("close_error":"1.2.3.4",)";
  }
  room.Put(json, keys);
  test::RunOnSmallStack([&] {
    EXPECT_TRUE(migrateEvidenceFile(log));
    EXPECT_TRUE(migrateEvidenceFile(json));
  });
  EXPECT_EQ(room.Get(log), "[redacted]");
  EXPECT_EQ(room.Get(json).find("1.2.3.4"), std::string::npos);
}

}  // namespace
}  // namespace korvane
