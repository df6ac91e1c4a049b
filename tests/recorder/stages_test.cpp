// The words of the log are a contract with its readers: the document's list of them is held against
// what the code writes.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "support/temporary_folder.h"

namespace korvane {
namespace {

const std::filesystem::path kRoot = KORVANE_SOURCE_FOLDER;

// The first cells of the tables in the document's chapter of stages.
std::set<std::string> Explained() {
  std::string text = test::ReadBytes(kRoot / "docs" / "startup-log.md").value_or("");
  text = text.substr(text.find("\n## Stages"));
  text = text.substr(0, text.find("\n## ", 1));
  constexpr std::string_view kRow = "\n| `";
  std::set<std::string> stages;
  for (std::size_t at = text.find(kRow); at != std::string::npos; at = text.find(kRow, at)) {
    at += kRow.size();
    stages.insert(text.substr(at, text.find('`', at) - at));
  }
  return stages;
}

std::vector<std::string> Sources() {
  std::vector<std::string> texts;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(kRoot / "src")) {
    if (entry.path().extension() == ".cpp") {
      texts.push_back(test::ReadBytes(entry.path()).value_or(""));
    }
  }
  return texts;
}

TEST(Stages, EachThatIsExplainedIsWrittenSomewhere) {
  const std::set<std::string> explained = Explained();
  EXPECT_EQ(explained.size(), 47u);
  const std::vector<std::string> sources = Sources();
  for (const std::string& stage : explained) {
    EXPECT_TRUE(std::any_of(sources.begin(), sources.end(), [&stage](const std::string& source) {
      return source.find('"' + stage + '"') != std::string::npos;
    })) << stage;
  }
}

TEST(Stages, EachThatIsWrittenIsExplained) {
  std::set<std::string> written;
  for (const std::string& source : Sources()) {
    for (const std::string call : {".Event(", ".RecordDisplayEvent(", "  Record("}) {
      for (std::size_t at = source.find(call); at != std::string::npos;
           at = source.find(call, at)) {
        at = source.find_first_not_of(" \n", at + call.size());
        if (at != std::string::npos && source[at] == '"') {
          written.insert(source.substr(at + 1, source.find('"', at + 1) - at - 1));
        }
      }
    }
  }
  EXPECT_GT(written.size(), 10u) << "the calls are no longer written as this test expects";
  const std::set<std::string> explained = Explained();
  for (const std::string& stage : written) {
    EXPECT_TRUE(explained.contains(stage)) << stage;
  }
}

}  // namespace
}  // namespace korvane
