#include <optional>
#include <utility>

#include "platform/os.h"
#include "vpn/decisions.h"
#include "vpn/engine_binding.h"
#include "vpn/method_arguments.h"
#include "vpn/vpn_event_stream.h"
#include "vpn/vpn_methods.h"
#include "vpn/vpn_state.h"

namespace korvane {

namespace {

using flutter::EncodableList;
using flutter::EncodableMap;
using flutter::EncodableValue;

constexpr char kInvalidArguments[] = "INVALID_ARGUMENTS";
constexpr char kConfigRequired[] = "Config string required";

struct Preference {
  std::string config;
  bool auto_configure_proxy = true;
};

// A map with `config` and perhaps `autoConfigureProxy`, or a list that begins with the text.
std::optional<Preference> ReadPreference(const Arguments& arguments) {
  const std::string* config = nullptr;
  const bool* auto_configure_proxy = nullptr;
  if (const auto* map = arguments.GetIf<EncodableMap>()) {
    config = flutter::FindIf<std::string>(*map, "config");
    auto_configure_proxy = flutter::FindIf<bool>(*map, "autoConfigureProxy");
  } else if (const auto* list = arguments.GetIf<EncodableList>(); list && !list->empty()) {
    config = list->front().GetIf<std::string>();
  }
  if (config == nullptr || config->empty()) {
    return std::nullopt;
  }
  return Preference{*config, auto_configure_proxy == nullptr || *auto_configure_proxy};
}

}  // namespace

void MethodLoadVpnPreference(const Arguments& arguments, OwnedResult result) {
  auto preference = ReadPreference(arguments);
  if (!preference) {
    result->Error(kInvalidArguments, kConfigRequired);
    return;
  }
  platform::WriteErrorLine(
      "[INFO] loadVPNPreference: config length=" + std::to_string(preference->config.size()) +
      ", autoConfigureProxy=" + (preference->auto_configure_proxy ? "true" : "false"));
  // The only writer: the other two ways to connect use the value left here.
  vpn_state().autoConfigureProxy = preference->auto_configure_proxy;
  HandOver(std::move(result), LoadVpnPreferenceWorker, std::move(preference->config));
}

void MethodDoConnectVpn(const Arguments& /*arguments*/, OwnedResult result) {
  PostVpnState(kVpnConnecting);
  HandOver(std::move(result), DoConnectVpnWorker);
}

void MethodStopVpn(const Arguments& /*arguments*/, OwnedResult result) {
  PostVpnState(kVpnDisconnecting);
  HandOver(std::move(result), StopVpnWorker);
}

void MethodIsRunning(const Arguments& /*arguments*/, OwnedResult result) {
  result->Success(EncodableValue(IsVpnConnected()));
}

void MethodGetStatus(const Arguments& /*arguments*/, OwnedResult result) {
  result->Success(EncodableValue(IsVpnConnected() ? "connected" : "disconnected"));
}

void MethodGetCoreVersion(const Arguments& /*arguments*/, OwnedResult result) {
  result->Success(TextValue(ReadCoreVersion()));
}

void MethodRefreshVpnStatus(const Arguments& /*arguments*/, OwnedResult result) {
  // The word comes as an event, behind the answer.
  result->Success(EncodableValue(true));
  const std::string word = CurrentVpnState();
  DecideRefreshState("refreshVPNStatus", word);
  PostVpnState(word);
}

void MethodDisconnectForNodeSwitching(const Arguments& /*arguments*/, OwnedResult result) {
  HandOver(std::move(result), DisconnectForNodeSwitchingWorker);
}

void MethodConnectForNodeSwitching(const Arguments& arguments, OwnedResult result) {
  const auto* config = arguments.GetIf<std::string>();
  if (config == nullptr) {
    result->Error(kInvalidArguments, kConfigRequired);
    return;
  }
  HandOver(std::move(result), ConnectForNodeSwitchingWorker, *config);
}

void MethodRestoreUserAutoReconnectPreference(const Arguments& arguments, OwnedResult result) {
  if (arguments.GetIf<bool>() == nullptr) {
    result->Error(kInvalidArguments, "Missing enabled parameter");
    return;
  }
  result->Success(EncodableValue(true));
}

void MethodClearSystemProxy(const Arguments& /*arguments*/, OwnedResult result) {
  HandOver(std::move(result), ClearSystemProxyWorker);
}

void MethodRequestAdminPrivileges(const Arguments& /*arguments*/, OwnedResult result) {
  HandOver(std::move(result), RequestAdminPrivilegesWorker);
}

void MethodAnswerTrue(const Arguments& /*arguments*/, OwnedResult result) {
  result->Success(EncodableValue(true));
}

void MethodAnswerFalse(const Arguments& /*arguments*/, OwnedResult result) {
  result->Success(EncodableValue(false));
}

void MethodGetAppGroupDirectory(const Arguments& /*arguments*/, OwnedResult result) {
  result->Success(EncodableValue("%APPDATA%\\Korvane"));
}

}  // namespace korvane
