// proxy_manager.h: points the user's system proxy at the engine, and back to a direct connection.
//
// Per-user settings of the default connection. No state, no lock, no copy of what stood there
// before: disabling always writes "direct". After a crash the setting stays until the next full
// stop or `clearSystemProxy`. Any thread; the last writer wins. Nothing throws.
#pragma once

#include <string>

namespace korvane {

// Addresses that never go through the proxy: loopback, private and link-local ranges, plain names.
extern const wchar_t kLanBypassList[];

struct SystemProxyState {
  bool enabled = false;
  std::string server;  // UTF-8, like the other texts; empty when absent
  std::string bypass;
  bool autoConfigEnabled = false;
  std::string autoConfigUrl;
};

// True when the system accepted the settings. host is UTF-8.
bool EnableSystemProxy(const std::string& host, int port);

// True when the system accepted the settings. A failure is silent here: the caller's own warning is
// its only trace.
bool DisableSystemProxy();

// Both bools false and all texts empty when the system gave nothing.
SystemProxyState QuerySystemProxy();

}  // namespace korvane
