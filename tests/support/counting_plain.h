// counting_plain.h: the counting decorators of the subjects that nobody watches. A part of
// counting_os.cpp.
#pragma once

#include <cstdint>
#include <memory>

#include "support/counted_subject.h"

namespace korvane::test {

using namespace platform;  // NOLINT: nearly every name below is one of its

inline constexpr std::int32_t kFailedHresult = -2147467259;  // E_FAIL

class CountingAppearance final : public Counted<Appearance> {
 public:
  using Counted::Counted;
  void CallTheme(ThemeFunction function) override {
    Make(Effect::kLooks, "Appearance.CallTheme",
         static_cast<void (Appearance::*)(ThemeFunction)>(&Appearance::CallTheme), function);
  }
  void CallTheme(ThemeFunction function, std::int32_t argument) override {
    Make(Effect::kLooks, "Appearance.CallTheme",
         static_cast<void (Appearance::*)(ThemeFunction, std::int32_t)>(&Appearance::CallTheme),
         function, argument);
  }
  KORVANE_COUNTED_OR(false, 0, Appearance, LoadThemeLibrary, kLooks);
  KORVANE_COUNTED_OR(nullptr, 1, Appearance, FindThemeFunction, kLooks);
  KORVANE_COUNTED(0, Appearance, SystemBuild, kLooks);
  KORVANE_COUNTED_OR(kFailedHresult, 2, Appearance, SetDarkTitleBar, kLooks);
  KORVANE_COUNTED(1, Appearance, EnableNonClientDpiScaling, kLooks);
  KORVANE_COUNTED_OR(nullptr, 0, Appearance, FindUserModule, kLooks);
  KORVANE_COUNTED_OR(nullptr, 2, Appearance, FindDensityFunction, kLooks);
  KORVANE_COUNTED(2, Appearance, WindowDensity, kLooks);
  KORVANE_COUNTED(1, Appearance, SystemDensity, kLooks);
};

class CountingClocks final : public Counted<Clocks> {
 public:
  using Counted::Counted;
  KORVANE_COUNTED(0, Clocks, SteadyNanoseconds, kLooks);
  KORVANE_COUNTED(0, Clocks, UnixMilliseconds, kLooks);
  KORVANE_COUNTED(1, Clocks, SleepMilliseconds, kLooks);
};

class CountingCertificate final : public Counted<SignerCertificate> {
 public:
  CountingCertificate(std::unique_ptr<SignerCertificate> inner, OperationCounter& counter)
      : Counted(*inner, counter), owned_(std::move(inner)) {}
  KORVANE_COUNTED(0, SignerCertificate, Sha1Thumbprint, kLooks);
  KORVANE_COUNTED(0, SignerCertificate, SimpleDisplayName, kLooks);

 private:
  std::unique_ptr<SignerCertificate> owned_;
};

class CountingCodeTrust final : public Counted<CodeTrust> {
 public:
  using Counted::Counted;
  SignerLookup FindSigner(const std::filesystem::path& path) override {
    SignerLookup lookup =
        Make(Effect::kLooks, "CodeTrust.FindSigner", &CodeTrust::FindSigner, path);
    if (lookup.certificate != nullptr) {
      lookup.certificate =
          std::make_unique<CountingCertificate>(std::move(lookup.certificate), counter_);
    }
    return lookup;
  }
  KORVANE_COUNTED(0, CodeTrust, Available, kLooks);
  KORVANE_COUNTED(1, CodeTrust, Hold, kLooks);
  KORVANE_COUNTED_OR(kInjectedError, 2, CodeTrust, VerifySignature, kLooks);
};

class CountingDynamicLibraries final : public Counted<DynamicLibraries> {
 public:
  using Counted::Counted;
  KORVANE_COUNTED(0, DynamicLibraries, RestrictSearchPath, kLooks);
  KORVANE_COUNTED(1, DynamicLibraries, Load, kLooks);
  KORVANE_COUNTED_OR(nullptr, 2, DynamicLibraries, Symbol, kLooks);
  KORVANE_COUNTED_OR(false, 2, DynamicLibraries, CallGuarded, kLooks);
};

class CountingElevation final : public Counted<Elevation> {
 public:
  // `owner` closes the handles of the processes that are launched.
  CountingElevation(Elevation& inner, OperationCounter& counter, KernelObjects& owner)
      : Counted(inner, counter), owner_(owner) {}
  Result<KernelHandle> LaunchElevated(const std::wstring& executable,
                                      const std::wstring& parameters) override {
    Result<KernelHandle> process = Make(Effect::kChanges, "Elevation.LaunchElevated",
                                        &Elevation::LaunchElevated, executable, parameters);
    if (process) {
      return KernelHandle(&owner_, process.value().Release());
    }
    return process;
  }
  KORVANE_COUNTED_OR(false, 0, Elevation, IsAdministrator, kLooks);
  KORVANE_COUNTED_OR({}, 0, Elevation, UserSid, kLooks);
  KORVANE_COUNTED(1, Elevation, ExitCode, kLooks);

 private:
  KernelObjects& owner_;
};

class CountingErrorStream final : public Counted<ErrorStream> {
 public:
  using Counted::Counted;
  KORVANE_COUNTED(1, ErrorStream, WriteLine, kLooks);
  KORVANE_COUNTED(0, ErrorStream, SilenceStandardError, kLooks);
  KORVANE_COUNTED(1, ErrorStream, WriteToDebugger, kLooks);
};

class CountingIdentifiers final : public Counted<Identifiers> {
 public:
  using Counted::Counted;
  KORVANE_COUNTED(0, Identifiers, CreateGuid, kLooks);
  KORVANE_COUNTED(1, Identifiers, FormatGuid, kLooks);
  KORVANE_COUNTED(0, Identifiers, PerformanceCounter, kLooks);
};

class CountingSession final : public Counted<LoopbackHttpSession> {
 public:
  CountingSession(std::unique_ptr<LoopbackHttpSession> inner, OperationCounter& counter)
      : Counted(*inner, counter), owned_(std::move(inner)) {}
  KORVANE_COUNTED(2, LoopbackHttpSession, Get, kLooks);

 private:
  std::unique_ptr<LoopbackHttpSession> owned_;
};

class CountingLoopbackHttp final : public Counted<LoopbackHttp> {
 public:
  using Counted::Counted;
  std::unique_ptr<LoopbackHttpSession> Open(int timeout_ms) override {
    auto session = MakeOr(std::unique_ptr<LoopbackHttpSession>(), Effect::kLooks,
                          "LoopbackHttp.Open", &LoopbackHttp::Open, timeout_ms);
    if (session == nullptr) {
      return nullptr;
    }
    return std::make_unique<CountingSession>(std::move(session), counter_);
  }
};

class CountingNetwork final : public Counted<Network> {
 public:
  using Counted::Counted;
  KORVANE_COUNTED(0, Network, Adapters, kLooks);
  KORVANE_COUNTED(0, Network, DefaultRoutes, kLooks);
  KORVANE_COUNTED(0, Network, OwnSockets, kLooks);
};

class CountingProxySettings final : public Counted<ProxySettings> {
 public:
  using Counted::Counted;
  KORVANE_COUNTED(3, ProxySettings, Store, kChanges);
  KORVANE_COUNTED(0, ProxySettings, AnnounceChange, kChanges);
  KORVANE_COUNTED(0, ProxySettings, Query, kLooks);
};

class CountingScheduledCommand final : public Counted<ScheduledCommand> {
 public:
  using Counted::Counted;
  KORVANE_COUNTED(1, ScheduledCommand, Run, kChanges);
};

class CountingTextEncoding final : public Counted<TextEncoding> {
 public:
  using Counted::Counted;
  KORVANE_COUNTED(1, TextEncoding, AnsiToUtf8, kLooks);
  KORVANE_COUNTED(1, TextEncoding, WideToUtf8, kLooks);
  KORVANE_COUNTED(1, TextEncoding, WideToUtf8Lossy, kLooks);
  KORVANE_COUNTED(1, TextEncoding, Utf8ToWide, kLooks);
  KORVANE_COUNTED(1, TextEncoding, PathFromNarrow, kLooks);
  KORVANE_COUNTED(1, TextEncoding, NarrowFromPath, kLooks);
  KORVANE_COUNTED(1, TextEncoding, PathFromWide, kLooks);
  KORVANE_COUNTED(0, TextEncoding, PathSeparator, kLooks);
  KORVANE_COUNTED(1, TextEncoding, ErrorMessage, kLooks);
};

class CountingWindowSystem final : public Counted<WindowSystem> {
 public:
  using Counted::Counted;
  KORVANE_COUNTED(1, WindowSystem, RegisterWindowClass, kLooks);
  KORVANE_COUNTED(1, WindowSystem, UnregisterWindowClass, kLooks);
  KORVANE_COUNTED(1, WindowSystem, Create, kChanges);
  KORVANE_COUNTED(1, WindowSystem, CreationParameter, kLooks);
  KORVANE_COUNTED(1, WindowSystem, Destroy, kChanges);
  KORVANE_COUNTED(4, WindowSystem, DefaultProcedure, kLooks);
  KORVANE_COUNTED(2, WindowSystem, SetUserData, kLooks);
  KORVANE_COUNTED(1, WindowSystem, UserData, kLooks);
  KORVANE_COUNTED(3, WindowSystem, SetWindowProperty, kChanges);
  KORVANE_COUNTED(2, WindowSystem, RemoveWindowProperty, kChanges);
  KORVANE_COUNTED(2, WindowSystem, WindowProperty, kLooks);
  KORVANE_COUNTED(2, WindowSystem, AllowMessage, kLooks);
  KORVANE_COUNTED(1, WindowSystem, ClientRectangle, kLooks);
  KORVANE_COUNTED(2, WindowSystem, Move, kLooks);
  KORVANE_COUNTED(5, WindowSystem, Place, kLooks);
  KORVANE_COUNTED(2, WindowSystem, SetParent, kLooks);
  KORVANE_COUNTED(1, WindowSystem, SetFocus, kLooks);
  KORVANE_COUNTED(2, WindowSystem, Show, kChanges);
  KORVANE_COUNTED_OR(false, 1, WindowSystem, SetForeground, kChanges);
  KORVANE_COUNTED(2, WindowSystem, MonitorAt, kLooks);
  KORVANE_COUNTED(4, WindowSystem, Post, kChanges);
  KORVANE_COUNTED(1, WindowSystem, PostQuit, kLooks);
  KORVANE_COUNTED(1, WindowSystem, Next, kLooks);
  KORVANE_COUNTED(1, WindowSystem, Dispatch, kLooks);
  KORVANE_COUNTED_OR(nullptr, 2, WindowSystem, Find, kLooks);
  KORVANE_COUNTED_OR(0, 1, WindowSystem, OwnerProcess, kLooks);
  KORVANE_COUNTED_OR(false, 1, WindowSystem, AllowForeground, kLooks);
  KORVANE_COUNTED(3, WindowSystem, ShowMessageBox, kChanges);
  KORVANE_COUNTED(1, WindowSystem, RegisterSessionNotification, kLooks);
  KORVANE_COUNTED(1, WindowSystem, UnregisterSessionNotification, kLooks);
  KORVANE_COUNTED(0, WindowSystem, RemoteSession, kLooks);
  KORVANE_COUNTED(0, WindowSystem, DisplayCount, kLooks);
};

}  // namespace korvane::test
