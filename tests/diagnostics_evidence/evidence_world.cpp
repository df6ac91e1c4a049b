#include "diagnostics_evidence/evidence_world.h"

#include <nlohmann/json.hpp>

namespace korvane::test {

namespace {

constexpr wchar_t kSwitch[] = L"Software\\Korvane\\WindowsDiagnosticsEnabled";

}  // namespace

EvidenceWorld::EvidenceWorld(bool captures) {
  if (captures) {
    SwitchInRegistry(true);
  }
  static_cast<void>(files.CreateDirectories(PathOf("incidents")));
}

platform::Os EvidenceWorld::OwnOs() {
  platform::Os os = platform::RealOs();
  os.clocks = &clock;
  os.error_stream = &errors;
  os.files = &files;
  os.identifiers = &identifiers_;
  os.process = &fake_process_;
  os.registry = &registry;
  return os;
}

LibboxLogBuffer& EvidenceWorld::Start() {
  running_.reset();
  running_ = std::make_unique<Running>(os_);
  return evidence();
}

std::size_t EvidenceWorld::Suffer(CountingPlan plan, const Work& work) {
  LibboxLogBuffer& process = evidence();
  CountingOs counting(os_, std::move(plan));
  const platform::ScopedOs in_force(counting.os());
  work(process);
  return counting.count();
}

std::size_t EvidenceWorld::Restart(CountingPlan plan, const Work& work) {
  running_.reset();
  CountingOs counting(os_, std::move(plan));
  const platform::ScopedOs in_force(counting.os());
  LibboxLogBuffer process;
  work(process);
  return counting.count();
}

std::filesystem::path EvidenceWorld::PathOf(const std::string& name) const {
  const std::filesystem::path root =
      platform::RealOs().text->PathFromNarrow("/roaming") / "Korvane";
  return name.empty() ? root : root / platform::RealOs().text->PathFromNarrow(name);
}

void EvidenceWorld::Put(const std::string& name, std::string_view bytes) {
  const auto path = PathOf(name);
  static_cast<void>(files.CreateDirectories(path.parent_path()));
  auto file = files.Open(path, platform::OpenMode::kWriteShared);
  static_cast<void>(files.Write(file.value(), bytes));
  static_cast<void>(files.Flush(file.value()));
  static_cast<void>(files.Close(file.value()));
}

std::string EvidenceWorld::Get(const std::string& name) {
  auto file = files.Open(PathOf(name), platform::OpenMode::kRead);
  return file ? files.Read(file.value(), 1U << 30U).value() : "<absent>";
}

void EvidenceWorld::Remove(const std::string& name) {
  static_cast<void>(files.RemoveFile(PathOf(name)));
}

std::map<std::string, std::string> EvidenceWorld::Snapshot() {
  std::map<std::string, std::string> found;
  for (auto& [path, content] : files.After(Fate::kKept).files) {
    const auto name = std::filesystem::path(path).lexically_relative(PathOf(""));
    found[name.generic_string()] = std::move(content.bytes);
  }
  return found;
}

std::vector<std::string> EvidenceWorld::Incidents() {
  std::vector<std::string> ids;
  const auto entries = files.List(PathOf("incidents"));
  if (entries) {
    for (const platform::DirectoryEntry& entry : entries.value()) {
      if (entry.kind == platform::EntryKind::kDirectory) {
        ids.push_back(entry.name.string());
      }
    }
  }
  return ids;
}

std::vector<std::string> EvidenceWorld::Pending() {
  std::vector<std::string> pending;
  for (const std::string& id : Incidents()) {
    if (Get("incidents/" + id + "/pending") != "<absent>") {
      pending.push_back(id);
    }
  }
  return pending;
}

void EvidenceWorld::SwitchInRegistry(bool on) { registry.values[kSwitch] = on ? 1 : 0; }

std::string MarkerText(const std::string& session, const std::string& utc) {
  return R"({"schema":1,"utc":")" + utc + R"(","session_id":")" + session +
         R"(","build_id":"2.16.10+336"})";
}

std::string RecordText(const std::map<std::string, std::string>& fields) {
  return nlohmann::json(fields).dump();
}

}  // namespace korvane::test
