#include "platform/real_os.h"

namespace korvane::platform {

const Os& RealOs() {
  static const Os os = {
      .appearance = &RealAppearance(),
      .clocks = &RealClocks(),
      .code_trust = &RealCodeTrust(),
      .dynamic_libraries = &RealDynamicLibraries(),
      .elevation = &RealElevation(),
      .error_stream = &RealErrorStream(),
      .files = &RealFiles(),
      .identifiers = &RealIdentifiers(),
      .kernel_objects = &RealKernelObjects(),
      .loopback_http = &RealLoopbackHttp(),
      .network = &RealNetwork(),
      .process = &RealProcess(),
      .proxy_settings = &RealProxySettings(),
      .registry = &RealRegistry(),
      .scheduled_command = &RealScheduledCommand(),
      .text = &RealTextEncoding(),
      .windows = &RealWindowSystem(),
  };
  return os;
}

}  // namespace korvane::platform
