// The words of the log are a contract with its readers: this is the whole list of them, held
// against what the code writes and what the document explains.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/temporary_folder.h"

namespace korvane {
namespace {

const std::filesystem::path kRoot = KORVANE_SOURCE_FOLDER;

// One name behind the other, parted by blanks.
constexpr char kNames[] =
    "WM_DISPLAYCHANGE WM_DPICHANGED WM_POWERBROADCAST WM_WTSSESSION_CHANGE "
    "activate_existing_instance_legacy activate_existing_instance_pid_failed "
    "activate_existing_instance_posted activate_existing_instance_window_not_found "
    "activate_request activation_foreground_denied activation_message_filter_failed "
    "activation_post_failed activation_protocol_property_failed activation_shown "
    "adapter_description_encoding_failed adapter_description_failed core_channel_ready "
    "dart_breadcrumb dpi_api_unavailable dpi_module_unavailable dpi_query_failed engine_create "
    "engine_create_failed first_raster_callback first_raster_property_failed "
    "foreground_permission_denied graphics_adapter_unavailable guid_creation_failed "
    "guid_format_failed instance_mutex_abandoned instance_mutex_wait_failed "
    "instance_mutex_wait_timeout latched_foreground_denied legacy_foreground_denied mutex "
    "mutex_create_failed plugins_registered process_start session_facts "
    "session_facts_post_failed show_window startup_channel_invalid_arguments update_result "
    "win32_create window_create_failed wts_registration_failed wts_unregistration_failed";

std::set<std::string> Stages() {
  std::istringstream names(kNames);
  return {std::istream_iterator<std::string>(names), {}};
}

const std::set<std::string> kStages = Stages();

std::vector<std::string> Sources() {
  std::vector<std::string> texts;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(kRoot / "src")) {
    if (entry.path().extension() == ".cpp") {
      texts.push_back(test::ReadBytes(entry.path()).value_or(""));
    }
  }
  return texts;
}

TEST(Stages, EachIsWrittenSomewhereAndExplained) {
  ASSERT_EQ(kStages.size(), 47u);
  const std::vector<std::string> sources = Sources();
  const std::string document = test::ReadBytes(kRoot / "docs" / "startup-log.md").value_or("");
  for (const std::string& stage : kStages) {
    EXPECT_TRUE(std::any_of(sources.begin(), sources.end(), [&stage](const std::string& source) {
      return source.find('"' + stage + '"') != std::string::npos;
    })) << stage;
    EXPECT_NE(document.find("\n| `" + stage + "` | "), std::string::npos) << stage;
  }
}

TEST(Stages, NothingElseIsWritten) {
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
  for (const std::string& stage : written) {
    EXPECT_EQ(kStages.count(stage), 1u) << stage;
  }
}

}  // namespace
}  // namespace korvane
