#include <algorithm>
#include <optional>

#include "platform/os.h"
#include "system/elevation_takeover.h"
#include "system/elevation_takeover_names.h"

namespace korvane {

namespace {

using platform::os;

// The value of the first argument with this beginning. Absent and empty are different things here.
std::optional<std::string> ValueOf(const std::vector<std::string>& arguments,
                                   std::string_view beginning) {
  const auto found = std::ranges::find_if(
      arguments, [&](const std::string& argument) { return argument.starts_with(beginning); });
  if (found == arguments.end()) {
    return std::nullopt;
  }
  return found->substr(beginning.size());
}

// Keeps consent that was given with another account's credentials from running the application as
// that account.
void RefuseOtherUser(const std::string& parent_sid) {
  const std::wstring own = os().elevation->UserSid();
  const std::wstring given = os().text->Utf8ToWide(parent_sid).value_or(std::wstring());
  if (!own.empty() && !given.empty() && EqualIgnoringCase(own, given)) {
    return;
  }
  platform::WriteErrorLine(L"[ProxyManager] Takeover SID mismatch (parent='" + given +
                           L"', child='" + own + L"'); exiting USER_MISMATCH");
  os().process->Exit(kTakeoverRefusalExitCode);
}

void SignalParent(const std::wstring& token) {
  const std::wstring name = TakeoverRequestEventName(token);
  auto request = os().kernel_objects->OpenNamedEvent(name);
  if (!request) {
    // The launch goes on; the parent finds out by its time-out.
    platform::WriteErrorLine("[ProxyManager] Failed to open takeover Request event. Error: " +
                             std::to_string(request.error()));
    return;
  }
  static_cast<void>(os().kernel_objects->SetEvent(request.value()));
  static_cast<void>(os().kernel_objects->Close(request.value()));
  platform::WriteErrorLine(L"[ProxyManager] Takeover Request signalled (" + name + L")");
}

}  // namespace

void RunTakeoverChildCheck(const std::vector<std::string>& arguments) {
  const auto token = ValueOf(arguments, kTakeoverTokenArgument);
  const auto parent_sid = ValueOf(arguments, kParentSidArgument);
  if (!token || !parent_sid) {
    return;
  }
  if (!IsTakeoverToken(*token) || !IsSidText(*parent_sid)) {
    platform::WriteErrorLine("[ProxyManager] Takeover: rejecting malformed token/SID");
    os().process->Exit(kTakeoverRefusalExitCode);
  }
  RefuseOtherUser(*parent_sid);
  SignalParent({token->begin(), token->end()});
}

}  // namespace korvane
