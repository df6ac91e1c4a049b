// counting_watched.h: the counting decorators of the subjects whose steps the order watcher is told
// of. A part of counting_os.cpp.
#pragma once

#include "support/counted_subject.h"

namespace korvane::test {

using namespace platform;  // NOLINT: nearly every name below is one of its

class CountingFiles final : public Counted<Files> {
 public:
  using Counted::Counted;
  Result<File> Open(const std::filesystem::path& path, OpenMode mode) override {
    watcher().Opens(path, mode);
    const Effect effect = mode == OpenMode::kRead ? Effect::kLooks : Effect::kChanges;
    Result<File> opened = Make(effect, "Files.Open", &Files::Open, path, mode);
    if (opened) {
      watcher().Opened(opened.value(), path);
      return File(this, opened.value().Release());
    }
    return opened;
  }
  Result<std::size_t> Write(File& file, std::string_view bytes) override {
    watcher().Writes(file);
    if (!counter_.Halves()) {
      return Make(Effect::kChanges, "Files.Write", &Files::Write, file, bytes);
    }
    const std::string_view half = bytes.substr(0, bytes.size() / 2);
    auto first = Make(Effect::kChanges, "Files.Write", &Files::Write, file, half);
    counter_.PauseWithin();
    auto rest = inner_.Write(file, bytes.substr(half.size()));
    return first && rest ? first.value() + rest.value() : std::move(rest);
  }
  Result<std::string> Read(File& file, std::uint64_t max_bytes) override {
    auto bytes = Make(Effect::kLooks, "Files.Read", &Files::Read, file, max_bytes);
    if (bytes) {
      watcher().Read(file);
    }
    return bytes;
  }
  Status Flush(File& file) override {
    const Status flushed = Make(Effect::kLooks, "Files.Flush", &Files::Flush, file);
    if (flushed) {
      watcher().Flushed(file);
    }
    return flushed;
  }
  Status Close(File& file) override { return MakeClose("Files.Close", file); }
  Result<EntryKind> Inspect(const std::filesystem::path& path) override {
    const auto kind = Make(Effect::kLooks, "Files.Inspect", &Files::Inspect, path);
    watcher().Inspected(path, kind && kind.value() == EntryKind::kAbsent);
    return kind;
  }
  Status Rename(const std::filesystem::path& from, const std::filesystem::path& to) override {
    watcher().Renames(from, to);
    const Status renamed = Make(Effect::kChanges, "Files.Rename", &Files::Rename, from, to);
    if (renamed) {
      watcher().Renamed(to);
    }
    return renamed;
  }
  Status RemoveFile(const std::filesystem::path& path) override {
    watcher().Removes(path);
    return Make(Effect::kChanges, "Files.RemoveFile", &Files::RemoveFile, path);
  }
  Result<bool> CreateDirectories(const std::filesystem::path& path) override {
    auto made = Make(Effect::kChanges, "Files.CreateDirectories", &Files::CreateDirectories, path);
    if (!made) {
      watcher().FolderFailed(path);
    }
    return made;
  }
  KORVANE_COUNTED(1, Files, Size, kLooks);
  KORVANE_COUNTED(1, Files, SeekToStart, kLooks);
  KORVANE_COUNTED(1, Files, TruncateHere, kChanges);
  KORVANE_COUNTED(1, Files, SizeOf, kLooks);
  KORVANE_COUNTED(1, Files, ModifiedAt, kLooks);
  KORVANE_COUNTED(2, Files, Copy, kChanges);
  KORVANE_COUNTED(1, Files, RemoveDirectory, kChanges);
  KORVANE_COUNTED(1, Files, List, kLooks);
  KORVANE_COUNTED(1, Files, IsNotFound, kLooks);
};

class CountingRegistry final : public Counted<Registry> {
 public:
  using Counted::Counted;
  Result<std::uint32_t> ReadDword(RegistryHive hive, const std::wstring& key,
                                  const std::wstring& value) override {
    auto data = Make(Effect::kLooks, "Registry.ReadDword", &Registry::ReadDword, hive, key, value);
    watcher().ReadSwitch(value, data && data.value() == 1);
    return data;
  }
  Status WriteDword(RegistryHive hive, const std::wstring& key, const std::wstring& value,
                    std::uint32_t data) override {
    watcher().SetsSwitch(value, data);
    const Status set = Make(Effect::kChanges, "Registry.WriteDword", &Registry::WriteDword, hive,
                            key, value, data);
    if (set) {
      watcher().SetSwitch(value, data);
    }
    return set;
  }
  KORVANE_COUNTED(3, Registry, DeleteValue, kChanges);
};

class CountingProcess final : public Counted<Process> {
 public:
  using Counted::Counted;
  void Exit(std::uint32_t code) override {
    watcher().Exits();
    Begin(Effect::kLooks, "Process.Exit", false);
    inner_.Exit(code);
  }
  KORVANE_COUNTED(0, Process, Id, kLooks);
  KORVANE_COUNTED(0, Process, Executable, kLooks);
  KORVANE_COUNTED(1, Process, EnvironmentVariable, kLooks);
  KORVANE_COUNTED(0, Process, LocalApplicationData, kLooks);
  KORVANE_COUNTED(0, Process, ArgumentVector, kLooks);
  KORVANE_COUNTED_OR(kFailedHresult, 1, Process, EnterApartment, kLooks);
  KORVANE_COUNTED(0, Process, LeaveApartment, kLooks);
  KORVANE_COUNTED(1, Process, SetAppUserModelId, kLooks);
  KORVANE_COUNTED_OR(false, 0, Process, AttachParentConsole, kLooks);
  KORVANE_COUNTED(0, Process, DebuggerPresent, kLooks);
  KORVANE_COUNTED_OR(false, 0, Process, OpenConsole, kLooks);
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
  WaitOutcome Wait(const KernelHandle& object, std::uint32_t milliseconds) override {
    WaitOutcome waited =
        Make(Effect::kLooks, "KernelObjects.Wait", &KernelObjects::Wait, object, milliseconds);
    if (waited.result == kWaitSignalled || waited.result == kWaitAbandoned) {
      watcher().Waited(object.native());
    }
    return waited;
  }
  Status ReleaseMutex(const KernelHandle& mutex) override {
    watcher().Releases(mutex.native());
    return Make(Effect::kChanges, "KernelObjects.ReleaseMutex", &KernelObjects::ReleaseMutex,
                mutex);
  }
  Status Close(KernelHandle& handle) override { return MakeClose("KernelObjects.Close", handle); }
  KORVANE_COUNTED(1, KernelObjects, SetEvent, kChanges);
  KORVANE_COUNTED(2, KernelObjects, WaitAny, kLooks);

 private:
  // The handle's close comes through here too.
  KernelHandle Own(KernelHandle handle) {
    return handle ? KernelHandle(this, handle.Release()) : KernelHandle();
  }
  Result<KernelHandle> Own(Result<KernelHandle> handle) {
    return handle ? Result<KernelHandle>(Own(handle.take())) : std::move(handle);
  }
};

}  // namespace korvane::test
