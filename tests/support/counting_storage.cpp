#include "support/counted_subject.h"

namespace korvane::test {

using namespace platform;  // NOLINT: nearly every name below is one of its

namespace {

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
  Result<std::uint64_t> Size(File& file) override {
    return Make(Effect::kLooks, "Files.Size", &Files::Size, file);
  }
  Status SeekToStart(File& file) override {
    return Make(Effect::kLooks, "Files.SeekToStart", &Files::SeekToStart, file);
  }
  Status TruncateHere(File& file) override {
    return Make(Effect::kChanges, "Files.TruncateHere", &Files::TruncateHere, file);
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
  Result<std::uint64_t> SizeOf(const std::filesystem::path& path) override {
    return Make(Effect::kLooks, "Files.SizeOf", &Files::SizeOf, path);
  }
  Result<std::int64_t> ModifiedAt(const std::filesystem::path& path) override {
    return Make(Effect::kLooks, "Files.ModifiedAt", &Files::ModifiedAt, path);
  }
  Status Copy(const std::filesystem::path& from, const std::filesystem::path& to) override {
    return Make(Effect::kChanges, "Files.Copy", &Files::Copy, from, to);
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
  Status RemoveDirectory(const std::filesystem::path& path) override {
    return Make(Effect::kChanges, "Files.RemoveDirectory", &Files::RemoveDirectory, path);
  }
  Result<bool> CreateDirectories(const std::filesystem::path& path) override {
    auto made = Make(Effect::kChanges, "Files.CreateDirectories", &Files::CreateDirectories, path);
    if (!made) {
      watcher().FolderFailed(path);
    }
    return made;
  }
  Result<std::vector<DirectoryEntry>> List(const std::filesystem::path& path) override {
    return Make(Effect::kLooks, "Files.List", &Files::List, path);
  }
  bool IsNotFound(ErrorCode error) override {
    return Make(Effect::kLooks, "Files.IsNotFound", &Files::IsNotFound, error);
  }
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
  Status DeleteValue(RegistryHive hive, const std::wstring& key,
                     const std::wstring& value) override {
    return Make(Effect::kChanges, "Registry.DeleteValue", &Registry::DeleteValue, hive, key, value);
  }
};

class CountingProxySettings final : public Counted<ProxySettings> {
 public:
  using Counted::Counted;

  Status Store(std::uint32_t flags, const std::wstring& server,
               const std::wstring& bypass) override {
    return Make(Effect::kChanges, "ProxySettings.Store", &ProxySettings::Store, flags, server,
                bypass);
  }
  void AnnounceChange() override {
    Make(Effect::kChanges, "ProxySettings.AnnounceChange", &ProxySettings::AnnounceChange);
  }
  Result<ConnectionProxy> Query() override {
    return Make(Effect::kLooks, "ProxySettings.Query", &ProxySettings::Query);
  }
};

}  // namespace

std::unique_ptr<Files> Count(Files& inner, OperationCounter& counter) {
  return std::make_unique<CountingFiles>(inner, counter);
}

std::unique_ptr<Registry> Count(Registry& inner, OperationCounter& counter) {
  return std::make_unique<CountingRegistry>(inner, counter);
}

std::unique_ptr<ProxySettings> Count(ProxySettings& inner, OperationCounter& counter) {
  return std::make_unique<CountingProxySettings>(inner, counter);
}

}  // namespace korvane::test
