#include "launch/launch_sequence.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "flutter_boundary/dart_project.h"
#include "flutter_boundary/flutter_windows_abi.h"
#include "launch/activation.h"
#include "launch/flutter_window.h"
#include "launch/instance_mutex.h"
#include "launch/launch_arguments.h"
#include "launch/launch_decision.h"
#include "launch/window_messages.h"
#include "platform/os.h"
#include "recorder/startup_recorder.h"
#include "system/elevation_takeover.h"

namespace korvane {

namespace {

using platform::os;

constexpr wchar_t kInstanceMutexName[] =
    L"Local\\Korvane_SingleInstance_5E88C2B6_1D2C_4C7A_8E2A_4D9F3A31B2F7";
constexpr wchar_t kAppUserModelId[] = L"com.korvane.Client";
constexpr wchar_t kDataFolder[] = L"data";
constexpr std::uint32_t kApartmentThreaded = 2;
constexpr WindowOrigin kWindowOrigin = {10, 10};
constexpr WindowSize kWindowSize = {1280, 800};

constexpr int kExitSuccess = 0;
constexpr int kExitFailure = 1;

// Somewhere to read the host's lines while it is debugged.
void CreateAndAttachConsole() {
  if (os().process->OpenConsole()) {
    FlutterDesktopResyncOutputStreams();
  }
}

void Record(const std::optional<LaunchEvent>& event) {
  if (event) {
    StartupRecorder::instance().Event(event->stage, event->fields);
  }
}

// Settles who runs the window. `mutex` holds the single-instance mutex afterwards, or nothing.
LaunchDecision SettleInstance(const LaunchFlags& flags, platform::KernelHandle& mutex) {
  auto created = os().kernel_objects->CreateNamedMutex(kInstanceMutexName, true);
  mutex = std::move(created.handle);
  LaunchDecision decision = DecideOnCreatedMutex(flags, static_cast<bool>(mutex), created.code);
  Record(decision.event);
  if (decision.step == LaunchStep::kWait) {
    decision = DecideOnWait(os().kernel_objects->Wait(mutex, decision.wait_ms));
    Record(decision.event);
  }
  return decision;
}

// Kept on purpose: runs for as long as the result isn't 0, so a failure (-1) doesn't end the loop.
void RunMessageLoop() {
  platform::Message message;
  while (os().windows->Next(message) != 0) {
    os().windows->Dispatch(message);
  }
}

int RunPrimary(const flutter::DartProject& project) {
  FlutterWindow window(project);
  if (!window.Create(kWindowTitle, kWindowOrigin, kWindowSize)) {
    // Kept on purpose: the mutex and the apartment go with the process.
    StartupRecorder::instance().Event("window_create_failed");
    return kExitFailure;
  }
  window.SetQuitOnClose(true);
  RunMessageLoop();
  ReleaseInstanceMutex();
  os().process->LeaveApartment();
  return kExitSuccess;
}

int RunSecondInstance(const LaunchFlags& flags, platform::KernelHandle& mutex) {
  if (flags.admin_bat_shim) {
    ShowAdminBatShimNotice();
  }
  ActivateExistingInstance();
  static_cast<void>(os().kernel_objects->Close(mutex));  // not owned, so not released
  return kExitSuccess;
}

}  // namespace

int RunLaunchSequence() {
  if (!os().dynamic_libraries->RestrictSearchPath()) {
    return kExitFailure;
  }
  StartupRecorder& recorder = StartupRecorder::instance();  // writes process_start
  if (!os().process->AttachParentConsole() && os().process->DebuggerPresent()) {
    CreateAndAttachConsole();
  }
  os().process->EnterApartment(kApartmentThreaded);
  os().process->SetAppUserModelId(kAppUserModelId);

  flutter::DartProject project = flutter::DartProject::InFolder(kDataFolder);
  project.impeller_mode = flutter::ImpellerMode::kDisabled;
  recorder.RecordSessionFacts(nullptr, nullptr, static_cast<int>(project.impeller_mode));

  std::vector<std::string> arguments = GetCommandLineArguments();
  const LaunchFlags flags = ScanLaunchArguments(arguments);
  // Before the mutex: the signal makes the parent exit, which frees the mutex for this process.
  RunTakeoverChildCheck(arguments);

  platform::KernelHandle mutex;
  const LaunchDecision decision = SettleInstance(flags, mutex);
  if (decision.step == LaunchStep::kSecondInstance) {
    return RunSecondInstance(flags, mutex);
  }
  SetInstanceMutex(std::move(mutex), decision.owned);
  SetTakeoverMutexRelease(&ReleaseInstanceMutex);
  project.dart_entrypoint_arguments = std::move(arguments);
  return RunPrimary(project);
}

}  // namespace korvane
