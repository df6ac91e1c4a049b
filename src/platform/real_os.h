// real_os.h: the accessors by which each side of the layer hands its subjects to RealOs.
//
// One function per subject, defined in windows/<subject>.cpp or posix/<subject>.cpp. Each object is
// made on first use and never destroyed.
#pragma once

#include "platform/os.h"

namespace korvane::platform {

Appearance& RealAppearance();
Clocks& RealClocks();
CodeTrust& RealCodeTrust();
DynamicLibraries& RealDynamicLibraries();
Elevation& RealElevation();
ErrorStream& RealErrorStream();
Files& RealFiles();
Identifiers& RealIdentifiers();
KernelObjects& RealKernelObjects();
LoopbackHttp& RealLoopbackHttp();
Network& RealNetwork();
Process& RealProcess();
ProxySettings& RealProxySettings();
Registry& RealRegistry();
ScheduledCommand& RealScheduledCommand();
TextEncoding& RealTextEncoding();
WindowSystem& RealWindowSystem();

}  // namespace korvane::platform
