#include "diagnostics_evidence/evidence_world.h"

#include <nlohmann/json.hpp>

namespace korvane::test {

namespace {

struct Crash {};

constexpr wchar_t kSwitch[] = L"Software\\Korvane\\WindowsDiagnosticsEnabled";

}  // namespace

EvidenceWorld::EvidenceWorld(bool captures) {
  if (captures) {
    SwitchInRegistry(true);
  }
  static_cast<void>(files.CreateDirectories(PathOf("incidents")));
  Start();
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
  process_ = std::make_unique<LibboxLogBuffer>();
  return *process_;
}

CountingPlan EvidenceWorld::CrashAt(std::size_t operation) {
  return StopAt(operation, [] { throw Crash(); });
}

bool EvidenceWorld::Suffer(CountingPlan plan, const std::function<void(LibboxLogBuffer&)>& work) {
  CountingOs counting(os_, std::move(plan));
  const platform::ScopedOs in_force(counting.os());
  bool ended = true;
  try {
    work(*process_);
  } catch (const Crash&) {
    ended = false;
  }
  counted_ = counting.count();
  return ended;
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
  static_cast<void>(files.Close(file.value()));
}

std::string EvidenceWorld::Get(const std::string& name) {
  auto file = files.Open(PathOf(name), platform::OpenMode::kRead);
  return file ? files.Read(file.value(), 1U << 30U).value() : "<absent>";
}

void EvidenceWorld::Remove(const std::string& name) {
  static_cast<void>(files.RemoveFile(PathOf(name)));
}

void EvidenceWorld::Collect(const std::filesystem::path& folder, const std::string& prefix,
                            std::map<std::string, std::string>& found) {
  const auto entries = files.List(folder);
  if (!entries) {
    return;
  }
  for (const platform::DirectoryEntry& entry : entries.value()) {
    const std::string name = prefix + entry.name.string();
    if (entry.kind == platform::EntryKind::kDirectory) {
      Collect(folder / entry.name, name + "/", found);
    } else {
      found[name] = Get(name);
    }
  }
}

std::map<std::string, std::string> EvidenceWorld::Snapshot() {
  std::map<std::string, std::string> found;
  Collect(PathOf(""), "", found);
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
