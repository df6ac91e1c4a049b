// window_messages.h: the private messages of the application's window, and the names by which other
// processes know it.
//
//   0x8001  kWmAppVpnDispatch      a tunnel thread has queued something for the interface
//   0x802A  kWmAppTakeoverExit     the takeover's worker: hand over and end the process
//   0x802B  kWmAppActivateRequest  a second instance asks for the window; its process id
//   0x802C  kWmAppSessionFacts     the window itself: sample the session facts again
//
// The first two belong to the rooms that post them (vpn, system). All of them stay as they are:
// another version of the program may be at the other end.
#pragma once

#include <cstdint>

#include "platform/window_system.h"

namespace korvane {

inline constexpr std::uint32_t kWmAppActivateRequest = platform::kWmApp + 43;
inline constexpr std::uint32_t kWmAppSessionFacts = platform::kWmApp + 44;

inline constexpr wchar_t kWindowClass[] = L"FLUTTER_RUNNER_WIN32_WINDOW";
inline constexpr wchar_t kWindowTitle[] = L"Korvane";

// Window properties, each with the value 1. A window with the first answers kWmAppActivateRequest;
// one without it is shown by the second instance's own means. The second is there for observers
// from outside: the first frame has been drawn.
inline constexpr wchar_t kActivationProtocolProperty[] = L"Korvane.ActivationProtocol";
inline constexpr wchar_t kFirstRasterProperty[] = L"Korvane.FirstRaster";
inline constexpr std::uintptr_t kPropertyValue = 1;

}  // namespace korvane
