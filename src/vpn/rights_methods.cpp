#include "system/elevated_autostart.h"
#include "vpn/vpn_methods.h"

namespace korvane {

namespace {

using flutter::EncodableValue;

// Both changes of the logon task: refused without rights, run on the window thread, which waits.
void ChangeAutostart(const OwnedResult& result, bool (*change)(), const char* failure) {
  if (!IsProcessElevated()) {
    result->Error("ELEVATION_REQUIRED", "Administrator privileges required");
  } else if (change()) {
    result->Success(EncodableValue(true));
  } else {
    result->Error("AUTOSTART_FAILED", failure);
  }
}

}  // namespace

void MethodCheckAdminPrivileges(const Arguments& /*arguments*/, OwnedResult result) {
  result->Success(EncodableValue(IsProcessElevated()));
}

void MethodIsElevatedAutostartEnabled(const Arguments& /*arguments*/, OwnedResult result) {
  result->Success(EncodableValue(IsElevatedAutostartEnabled()));
}

void MethodEnableElevatedAutostart(const Arguments& /*arguments*/, OwnedResult result) {
  ChangeAutostart(result, EnableElevatedAutostart, "Failed to enable elevated autostart");
}

void MethodDisableElevatedAutostart(const Arguments& /*arguments*/, OwnedResult result) {
  ChangeAutostart(result, DisableElevatedAutostart, "Failed to disable elevated autostart");
}

}  // namespace korvane
