#include "support/counted_subject.h"

namespace korvane::test {

using namespace platform;  // NOLINT: nearly every name below is one of its

namespace {

constexpr std::int32_t kFailedHresult = -2147467259;  // E_FAIL

class CountingProcess final : public Counted<Process> {
 public:
  using Counted::Counted;

  std::uint32_t Id() override { return Make(Effect::kLooks, "Process.Id", &Process::Id); }
  Result<ExecutablePath> Executable() override {
    return Make(Effect::kLooks, "Process.Executable", &Process::Executable);
  }
  std::optional<std::string> EnvironmentVariable(const char* name) override {
    return Make(Effect::kLooks, "Process.EnvironmentVariable", &Process::EnvironmentVariable, name);
  }
  Result<std::wstring> LocalApplicationData() override {
    return Make(Effect::kLooks, "Process.LocalApplicationData", &Process::LocalApplicationData);
  }
  std::optional<std::vector<std::wstring>> ArgumentVector() override {
    return Make(Effect::kLooks, "Process.ArgumentVector", &Process::ArgumentVector);
  }
  void Exit(std::uint32_t code) override {
    watcher().Exits();
    Begin(Effect::kLooks, "Process.Exit", false);
    inner_.Exit(code);
  }
  std::int32_t EnterApartment(std::uint32_t flags) override {
    return MakeOr(kFailedHresult, Effect::kLooks, "Process.EnterApartment",
                  &Process::EnterApartment, flags);
  }
  void LeaveApartment() override {
    Make(Effect::kLooks, "Process.LeaveApartment", &Process::LeaveApartment);
  }
  void SetAppUserModelId(const wchar_t* id) override {
    Make(Effect::kLooks, "Process.SetAppUserModelId", &Process::SetAppUserModelId, id);
  }
  bool AttachParentConsole() override {
    return MakeOr(false, Effect::kLooks, "Process.AttachParentConsole",
                  &Process::AttachParentConsole);
  }
  bool DebuggerPresent() override {
    return Make(Effect::kLooks, "Process.DebuggerPresent", &Process::DebuggerPresent);
  }
  bool OpenConsole() override {
    return MakeOr(false, Effect::kLooks, "Process.OpenConsole", &Process::OpenConsole);
  }
};

class CountingKernelObjects final : public Counted<KernelObjects> {
 public:
  using Counted::Counted;

  CreatedMutex CreateNamedMutex(const std::wstring& name, bool initially_owned) override {
    CreatedMutex created = Make(Effect::kChanges, "KernelObjects.CreateNamedMutex",
                                &KernelObjects::CreateNamedMutex, name, initially_owned);
    if (created.handle) {
      watcher().MadeMutex(created.handle.native(), initially_owned && created.code == 0);
    }
    return {.handle = Own(std::move(created.handle)), .code = created.code};
  }
  Result<KernelHandle> CreateNamedEvent(const std::wstring& name) override {
    return Own(Make(Effect::kChanges, "KernelObjects.CreateNamedEvent",
                    &KernelObjects::CreateNamedEvent, name));
  }
  Result<KernelHandle> OpenNamedEvent(const std::wstring& name) override {
    return Own(
        Make(Effect::kLooks, "KernelObjects.OpenNamedEvent", &KernelObjects::OpenNamedEvent, name));
  }
  Status SetEvent(const KernelHandle& event) override {
    return Make(Effect::kChanges, "KernelObjects.SetEvent", &KernelObjects::SetEvent, event);
  }
  WaitOutcome Wait(const KernelHandle& object, std::uint32_t milliseconds) override {
    WaitOutcome waited =
        Make(Effect::kLooks, "KernelObjects.Wait", &KernelObjects::Wait, object, milliseconds);
    if (waited.result == kWaitSignalled || waited.result == kWaitAbandoned) {
      watcher().Waited(object.native());
    }
    return waited;
  }
  WaitOutcome WaitAny(const std::vector<const KernelHandle*>& objects,
                      std::uint32_t milliseconds) override {
    return Make(Effect::kLooks, "KernelObjects.WaitAny", &KernelObjects::WaitAny, objects,
                milliseconds);
  }
  Status ReleaseMutex(const KernelHandle& mutex) override {
    watcher().Releases(mutex.native());
    return Make(Effect::kChanges, "KernelObjects.ReleaseMutex", &KernelObjects::ReleaseMutex,
                mutex);
  }
  Status Close(KernelHandle& handle) override { return MakeClose("KernelObjects.Close", handle); }

 private:
  // The handle's close comes through here too.
  KernelHandle Own(KernelHandle handle) {
    return handle ? KernelHandle(this, handle.Release()) : KernelHandle();
  }
  Result<KernelHandle> Own(Result<KernelHandle> handle) {
    return handle ? Result<KernelHandle>(Own(handle.take())) : std::move(handle);
  }
};

class CountingElevation final : public Counted<Elevation> {
 public:
  CountingElevation(Elevation& inner, KernelObjects& owner, OperationCounter& counter)
      : Counted(inner, counter), owner_(owner) {}

  bool IsAdministrator() override {
    return MakeOr(false, Effect::kLooks, "Elevation.IsAdministrator", &Elevation::IsAdministrator);
  }
  std::wstring UserSid() override {
    return MakeOr(std::wstring(), Effect::kLooks, "Elevation.UserSid", &Elevation::UserSid);
  }
  Result<KernelHandle> LaunchElevated(const std::wstring& executable,
                                      const std::wstring& parameters) override {
    Result<KernelHandle> process = Make(Effect::kChanges, "Elevation.LaunchElevated",
                                        &Elevation::LaunchElevated, executable, parameters);
    if (process) {
      return KernelHandle(&owner_, process.value().Release());
    }
    return process;
  }
  Result<std::uint32_t> ExitCode(const KernelHandle& process) override {
    return Make(Effect::kLooks, "Elevation.ExitCode", &Elevation::ExitCode, process);
  }

 private:
  KernelObjects& owner_;  // closes what is launched
};

class CountingScheduledCommand final : public Counted<ScheduledCommand> {
 public:
  using Counted::Counted;

  Result<std::uint32_t> Run(const std::wstring& command_line) override {
    return Make(Effect::kChanges, "ScheduledCommand.Run", &ScheduledCommand::Run, command_line);
  }
};

class CountingDynamicLibraries final : public Counted<DynamicLibraries> {
 public:
  using Counted::Counted;

  Status RestrictSearchPath() override {
    return Make(Effect::kLooks, "DynamicLibraries.RestrictSearchPath",
                &DynamicLibraries::RestrictSearchPath);
  }
  Result<ModuleHandle> Load(const std::filesystem::path& path) override {
    return Make(Effect::kLooks, "DynamicLibraries.Load", &DynamicLibraries::Load, path);
  }
  void* Symbol(ModuleHandle module, const char* name) override {
    return MakeOr(static_cast<void*>(nullptr), Effect::kLooks, "DynamicLibraries.Symbol",
                  &DynamicLibraries::Symbol, module, name);
  }
  bool CallGuarded(void (*function)(void* argument), void* argument) override {
    return MakeOr(false, Effect::kLooks, "DynamicLibraries.CallGuarded",
                  &DynamicLibraries::CallGuarded, function, argument);
  }
};

class CountingCertificate final : public SignerCertificate {
 public:
  CountingCertificate(std::unique_ptr<SignerCertificate> inner, OperationCounter& counter)
      : inner_(std::move(inner)), counter_(counter) {}

  std::optional<std::array<std::uint8_t, 20>> Sha1Thumbprint() override {
    const auto error = counter_.Begin({"SignerCertificate.Sha1Thumbprint", false, true});
    return error ? std::nullopt : inner_->Sha1Thumbprint();
  }
  std::optional<std::wstring> SimpleDisplayName() override {
    const auto error = counter_.Begin({"SignerCertificate.SimpleDisplayName", false, true});
    return error ? std::nullopt : inner_->SimpleDisplayName();
  }

 private:
  std::unique_ptr<SignerCertificate> inner_;
  OperationCounter& counter_;
};

class CountingCodeTrust final : public Counted<CodeTrust> {
 public:
  using Counted::Counted;

  bool Available() override {
    return Make(Effect::kLooks, "CodeTrust.Available", &CodeTrust::Available);
  }
  Result<std::unique_ptr<HeldFile>> Hold(const std::filesystem::path& path) override {
    return Make(Effect::kLooks, "CodeTrust.Hold", &CodeTrust::Hold, path);
  }
  std::uint32_t VerifySignature(const std::filesystem::path& path, const HeldFile& file) override {
    return MakeOr(std::uint32_t{kInjectedError}, Effect::kLooks, "CodeTrust.VerifySignature",
                  &CodeTrust::VerifySignature, path, file);
  }
  SignerLookup FindSigner(const std::filesystem::path& path) override {
    SignerLookup lookup =
        Make(Effect::kLooks, "CodeTrust.FindSigner", &CodeTrust::FindSigner, path);
    if (lookup.certificate != nullptr) {
      lookup.certificate =
          std::make_unique<CountingCertificate>(std::move(lookup.certificate), counter_);
    }
    return lookup;
  }
};

}  // namespace

std::unique_ptr<Process> Count(Process& inner, OperationCounter& counter) {
  return std::make_unique<CountingProcess>(inner, counter);
}

std::unique_ptr<KernelObjects> Count(KernelObjects& inner, OperationCounter& counter) {
  return std::make_unique<CountingKernelObjects>(inner, counter);
}

std::unique_ptr<Elevation> Count(Elevation& inner, KernelObjects& owner,
                                 OperationCounter& counter) {
  return std::make_unique<CountingElevation>(inner, owner, counter);
}

std::unique_ptr<ScheduledCommand> Count(ScheduledCommand& inner, OperationCounter& counter) {
  return std::make_unique<CountingScheduledCommand>(inner, counter);
}

std::unique_ptr<DynamicLibraries> Count(DynamicLibraries& inner, OperationCounter& counter) {
  return std::make_unique<CountingDynamicLibraries>(inner, counter);
}

std::unique_ptr<CodeTrust> Count(CodeTrust& inner, OperationCounter& counter) {
  return std::make_unique<CountingCodeTrust>(inner, counter);
}

}  // namespace korvane::test
