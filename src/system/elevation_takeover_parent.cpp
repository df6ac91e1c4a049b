#include <atomic>
#include <utility>

#include "diagnostics_evidence/libbox_log_buffer.h"
#include "platform/os.h"
#include "system/elevation_takeover.h"
#include "system/elevation_takeover_names.h"

namespace korvane {

namespace {

using platform::os;

constexpr std::uint32_t kApartmentFlags = 0x2 | 0x4;  // apartment-threaded, no OLE1 DDE
constexpr std::int32_t kApartmentEntered = 0;
constexpr std::int32_t kApartmentAlreadyEntered = 1;

// The places of the two objects in the wait.
constexpr std::uint32_t kRequestSignalled = 0;
constexpr std::uint32_t kChildEnded = 1;

std::atomic<platform::WindowHandle> takeover_window{nullptr};
std::atomic<void (*)()> release_mutex{nullptr};

// The objects of one attempt, closed in this order.
struct ArmedTakeover {
  platform::KernelHandle request;
  platform::KernelHandle ready;
  platform::KernelHandle child;

  void Close() {
    for (platform::KernelHandle* handle : {&request, &ready, &child}) {
      if (*handle) {
        static_cast<void>(os().kernel_objects->Close(*handle));
      }
    }
  }
};

void WriteError(const char* text, platform::ErrorCode error) {
  platform::WriteErrorLine(text + std::to_string(error));
}

std::wstring NewToken() {
  const auto guid = os().identifiers->CreateGuid();
  return guid ? TakeoverToken(guid.value()) : std::wstring();
}

// Does what the window would have done, but for destroying it; doesn't return.
void ExitDirectly(ArmedTakeover& armed, platform::ErrorCode post_error) {
  platform::WriteErrorLine("[ProxyManager] No main HWND or PostMessage failed (err=" +
                           std::to_string(post_error) + "); committing to direct ExitProcess(0)");
  armed.Close();
  // The evidence comes first: with the mutex free the child is already at work on the same files.
  LibboxLogBuffer::instance().writeOsShutdownMarker();
  LibboxLogBuffer::instance().recordShutdownIntent("elevation_handoff");
  // coverage: the start sets it before anything can ask for a takeover
  if (const auto release = release_mutex.load()) {
    release();
  }
  os().process->Exit(0);
}

TakeoverResult HandOver(ArmedTakeover& armed) {
  platform::WriteErrorLine(
      "[ProxyManager] Takeover Request received; posting WM_APP_TAKEOVER_EXIT");
  platform::ErrorCode post_error = 0;
  if (const platform::WindowHandle window = takeover_window.load(); window != nullptr) {
    const auto posted = os().windows->Post(window, kWmAppTakeoverExit, 0, 0);
    if (posted) {
      return TakeoverResult::kHandshake;
    }
    post_error = posted.error();
  }
  ExitDirectly(armed, post_error);
  return TakeoverResult::kHandshake;  // not reached: the process is gone
}

TakeoverResult JudgeEndedChild(const platform::KernelHandle& child) {
  const auto read = os().elevation->ExitCode(child);
  const std::uint32_t exit_code = read ? read.value() : 0;
  if (exit_code == kTakeoverRefusalExitCode) {
    platform::WriteErrorLine("[ProxyManager] Takeover failed: ElevatedAsDifferentUser");
    return TakeoverResult::kDifferentUser;
  }
  platform::WriteErrorLine("[ProxyManager] Takeover failed: ChildDiedBeforeHandshake (exit=" +
                           std::to_string(exit_code) + ")");
  return TakeoverResult::kChildDied;
}

TakeoverResult AwaitHandshake(ArmedTakeover& armed) {
  const auto outcome =
      os().kernel_objects->WaitAny({&armed.request, &armed.child}, kTakeoverRequestWaitMs);
  switch (outcome.result) {
    case kRequestSignalled:
      return HandOver(armed);
    case kChildEnded:
      return JudgeEndedChild(armed.child);
    case platform::kWaitTimeout:
      // Kept on purpose: the child isn't killed. It ends by itself, as a second instance.
      platform::WriteErrorLine("[ProxyManager] Takeover failed: TakeoverRequestTimeout");
      return TakeoverResult::kTimeout;
    default:
      WriteError("[ProxyManager] Takeover wait failed. Error: ", outcome.error);
      return TakeoverResult::kChildDied;
  }
}

TakeoverResult LaunchAndAwait(ArmedTakeover& armed, const std::wstring& executable,
                              const std::wstring& token, const std::wstring& parent_sid) {
  auto launched =
      os().elevation->LaunchElevated(executable, TakeoverChildParameters(token, parent_sid));
  if (!launched) {
    armed.Close();
    if (launched.error() == platform::kErrorCancelled) {
      platform::WriteErrorLine("[ProxyManager] Takeover: UAC cancelled");
      return TakeoverResult::kCancelled;
    }
    WriteError("[ProxyManager] Takeover: ShellExecuteExW failed. Error: ", launched.error());
    return TakeoverResult::kFailed;
  }
  armed.child = launched.take();
  platform::WriteErrorLine(L"[ProxyManager] Takeover armed (token=" + token +
                           L"); waiting for child handshake...");
  const TakeoverResult result = AwaitHandshake(armed);
  armed.Close();
  return result;
}

TakeoverResult Attempt() {
  const auto executable = os().process->Executable();
  if (!executable) {
    WriteError("[ProxyManager] Failed to get executable path. Error: ", executable.error());
    return TakeoverResult::kFailed;
  }
  const std::wstring parent_sid = os().elevation->UserSid();
  const std::wstring token = NewToken();
  if (parent_sid.empty() || token.empty()) {
    platform::WriteErrorLine("[ProxyManager] Takeover: failed to capture SID/token");
    return TakeoverResult::kFailed;
  }
  auto request = os().kernel_objects->CreateNamedEvent(TakeoverRequestEventName(token));
  if (!request) {
    WriteError("[ProxyManager] Failed to create Request event. Error: ", request.error());
    return TakeoverResult::kFailed;
  }
  ArmedTakeover armed;
  armed.request = request.take();
  // Kept on purpose: nobody waits for it or signals it, and a failure to make it is ignored.
  auto ready = os().kernel_objects->CreateNamedEvent(TakeoverReadyEventName(token));
  if (ready) {
    armed.ready = ready.take();
  }
  return LaunchAndAwait(armed, executable.value().path, token, parent_sid);
}

}  // namespace

void SetTakeoverWindow(platform::WindowHandle window) { takeover_window.store(window); }

void SetTakeoverMutexRelease(void (*release)()) { release_mutex.store(release); }

TakeoverResult RequestElevatedTakeover() {
  const std::int32_t entered = os().process->EnterApartment(kApartmentFlags);
  const TakeoverResult result = Attempt();
  if (entered == kApartmentEntered || entered == kApartmentAlreadyEntered) {
    os().process->LeaveApartment();
  }
  return result;
}

}  // namespace korvane
