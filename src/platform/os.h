// os.h: the operating system in force, one record of all subjects of the platform layer.
//
// platform::os() is the only way by which the host reaches the system. The record of the real
// system is made on first use and lives to the end of the process. A test may put another record in
// force for a scope: a fake of one subject over the real others, or a decorator that counts
// operations.
#pragma once

#include "platform/appearance.h"
#include "platform/clocks.h"
#include "platform/code_trust.h"
#include "platform/dynamic_libraries.h"
#include "platform/elevation.h"
#include "platform/error_stream.h"
#include "platform/files.h"
#include "platform/identifiers.h"
#include "platform/kernel_objects.h"
#include "platform/loopback_http.h"
#include "platform/network.h"
#include "platform/process.h"
#include "platform/proxy_settings.h"
#include "platform/registry.h"
#include "platform/scheduled_command.h"
#include "platform/text_encoding.h"
#include "platform/window_system.h"

namespace korvane::platform {

// Pointers are never null and not owned.
struct Os {
  Appearance* appearance = nullptr;
  Clocks* clocks = nullptr;
  CodeTrust* code_trust = nullptr;
  DynamicLibraries* dynamic_libraries = nullptr;
  Elevation* elevation = nullptr;
  ErrorStream* error_stream = nullptr;
  Files* files = nullptr;
  Identifiers* identifiers = nullptr;
  KernelObjects* kernel_objects = nullptr;
  LoopbackHttp* loopback_http = nullptr;
  Network* network = nullptr;
  Process* process = nullptr;
  ProxySettings* proxy_settings = nullptr;
  Registry* registry = nullptr;
  ScheduledCommand* scheduled_command = nullptr;
  TextEncoding* text = nullptr;
  WindowSystem* windows = nullptr;
};

// The system in force. Any thread.
const Os& os();

// The real system, whatever is in force. Any thread.
const Os& RealOs();

// Puts a record in force until the scope ends. For tests; no other thread may be inside a call of
// os() while it begins or ends.
class ScopedOs {
 public:
  explicit ScopedOs(const Os& os);
  ~ScopedOs();
  ScopedOs(const ScopedOs&) = delete;
  ScopedOs& operator=(const ScopedOs&) = delete;

 private:
  Os current_;
  const Os* previous_;
};

// Writes one line to the error stream in force.
void WriteErrorLine(std::string_view utf8);
// The same for wide text; what can't be converted becomes U+FFFD.
void WriteErrorLine(std::wstring_view wide);

}  // namespace korvane::platform
