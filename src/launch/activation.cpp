#include "launch/activation.h"

#include <cstdint>

#include "launch/window_messages.h"
#include "platform/os.h"
#include "recorder/startup_recorder.h"

namespace korvane {

namespace {

using platform::os;

constexpr std::int64_t kSearchDeadlineNs = 2'000'000'000;
constexpr std::uint32_t kSearchIntervalMs = 25;

constexpr std::uint32_t kNoticeFlags = 0x10030;  // OK, warning icon, set foreground
// Kept on purpose: the three characters stand where a dash might be expected.
constexpr wchar_t kNoticeText[] =
    L"korvane_admin.bat is deprecated and will be removed in the next update. Launch Korvane "
    L"directly from the Start Menu \u00E2\u20AC\u201D elevation is now handled in-app.";
constexpr wchar_t kNoticeCaption[] = L"Korvane \u00E2\u20AC\u201D korvane_admin.bat is deprecated";

// The window of the running instance, which may still be on its way; null when none came up.
platform::WindowHandle AwaitRunningWindow() {
  const std::int64_t deadline = os().clocks->SteadyNanoseconds() + kSearchDeadlineNs;
  do {
    const platform::WindowHandle window = os().windows->Find(kWindowClass, kWindowTitle);
    if (window != nullptr) {
      return window;
    }
    os().clocks->SleepMilliseconds(kSearchIntervalMs);
  } while (os().clocks->SteadyNanoseconds() < deadline);
  return nullptr;
}

// The events of one activation, each with the process that was found.
class ActivationLog {
 public:
  explicit ActivationLog(std::uint32_t target_pid) : target_pid_(target_pid) {}

  void Write(const char* stage) const {
    StartupRecorder::instance().Event(stage, {{"target_pid", target_pid_}});
  }

 private:
  std::int64_t target_pid_;
};

void ShowLegacyWindow(platform::WindowHandle window, const ActivationLog& log) {
  log.Write("activate_existing_instance_legacy");
  os().windows->Show(window, platform::kShowRestore);
  if (!os().windows->SetForeground(window)) {
    log.Write("legacy_foreground_denied");
  }
}

void RequestActivation(platform::WindowHandle window, std::uint32_t target_pid,
                       const ActivationLog& log) {
  if (!os().windows->AllowForeground(target_pid)) {
    // Still worth asking: the window may show itself without the foreground.
    log.Write("foreground_permission_denied");
  }
  const auto posted = os().windows->Post(window, kWmAppActivateRequest, os().process->Id(), 0);
  log.Write(posted ? "activate_existing_instance_posted" : "activation_post_failed");
}

}  // namespace

void ActivateExistingInstance() {
  StartupRecorder& recorder = StartupRecorder::instance();
  const platform::WindowHandle window = AwaitRunningWindow();
  if (window == nullptr) {
    recorder.Event("activate_existing_instance_window_not_found");
    return;
  }
  const std::uint32_t target_pid = os().windows->OwnerProcess(window);
  if (target_pid == 0) {
    recorder.Event("activate_existing_instance_pid_failed");
    return;
  }
  const ActivationLog log(target_pid);
  if (os().windows->WindowProperty(window, kActivationProtocolProperty) == 0) {
    ShowLegacyWindow(window, log);
  } else {
    RequestActivation(window, target_pid, log);
  }
}

void ShowAdminBatShimNotice() {
  os().windows->ShowMessageBox(kNoticeText, kNoticeCaption, kNoticeFlags);
  static_cast<void>(os().registry->DeleteValue(platform::RegistryHive::kCurrentUser,
                                               L"Software\\Korvane\\Korvane", L"AdminBatShimSeen"));
}

}  // namespace korvane
