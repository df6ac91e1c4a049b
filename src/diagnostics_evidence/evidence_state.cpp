#include "diagnostics_evidence/evidence_state.h"

#include "platform/os.h"

namespace korvane {

namespace {

std::string EvidenceRoot() {
  const auto app_data = platform::os().process->EnvironmentVariable("APPDATA");
  const std::string parent = app_data && !app_data->empty() ? *app_data : ".";
  const char separator = platform::os().text->PathSeparator();
  return parent + separator + "Korvane" + separator;
}

}  // namespace

EvidenceState MakeEvidenceState() {
  EvidenceState state;
  state.base_dir = EvidenceRoot();
  state.incidents_dir = state.base_dir + "incidents" + platform::os().text->PathSeparator();
  state.failed_start_path = state.base_dir + "libbox_failed_start";
  state.shutdown_record_path = state.base_dir + "libbox_shutdown_record.json";
  state.session_log_path = state.base_dir + "libbox_session.log";
  state.last_crash_path = state.base_dir + "libbox_last_crash.log";
  state.clean_shutdown_path = state.base_dir + "libbox_clean_shutdown";
  state.session_active_path = state.base_dir + "libbox_session_active";
  return state;
}

}  // namespace korvane
