#include <utility>

#include "recorder/startup_recorder.h"
#include "vpn/method_arguments.h"
#include "vpn/runtime_diagnostics.h"
#include "vpn/vpn_methods.h"
#include "vpn/vpn_state.h"

namespace korvane {

// Waits for a connect or a disconnect that holds lifecycle_mutex, which is
// accepted here. The two locks are never held together.
void MethodGetWindowsRuntimeDiagnostics(const Arguments& arguments, OwnedResult result) {
  RuntimeDiagnosticsJob job;
  job.selectorTag = StringArgument(arguments, "selectorTag");
  job.startup = StartupRecorder::instance().Snapshot();
  VpnState& vpn = vpn_state();
  {
    const RecursiveMutexLock lock(vpn.lifecycle_mutex);
    job.config = vpn.config_text;
    job.running = IsVpnConnected();
    job.autoConfigureProxy = vpn.autoConfigureProxy;
  }
  {
    const MutexLock lock(vpn.queue_mutex);
    job.lastError = vpn.last_native_error.Load();
  }
  HandOver(std::move(result), RuntimeDiagnosticsWorker, std::move(job));
}

}  // namespace korvane
