#include "support/order_watcher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <utility>

namespace korvane::test {

namespace {

namespace fs = std::filesystem;

constexpr char kActive[] = "libbox_session_active";
constexpr char kClean[] = "libbox_clean_shutdown";
constexpr char kFailedStart[] = "libbox_failed_start";
constexpr char kRecord[] = "libbox_shutdown_record.json";
constexpr char kRevocation[] = "windows_diagnostics_revoked";
constexpr char kHalfRevocation[] = "windows_diagnostics_revoked.tmp";
constexpr wchar_t kSwitch[] = L"WindowsDiagnosticsEnabled";

bool IsMarker(const fs::path& name) {
  return name == kActive || name == kClean || name == kFailedStart || name == kRecord;
}

// The first text that stands behind a key; empty when there is none.
std::string FieldOf(const std::string& text, const std::string& key) {
  const std::string beginning = '"' + key + R"(":")";
  const std::size_t at = text.find(beginning);
  if (at == std::string::npos) {
    return {};
  }
  const std::size_t begin = at + beginning.size();
  return text.substr(begin, text.find('"', begin) - begin);
}

// One for each thread that ever was; the system's own ids come back.
std::uint64_t ThisThread() {
  static std::atomic<std::uint64_t> threads{0};
  thread_local const std::uint64_t number = ++threads;
  return number;
}

// A damaged id is written otherwise in a manifest than in a marker.
bool IsPlain(const std::string& id) {
  return std::ranges::all_of(
      id, [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || c == '-'; });
}

}  // namespace

void Trail::Add(std::string step) {
  constexpr std::size_t kKept = 12;
  steps_.push_back(std::move(step));
  if (steps_.size() > kKept) {
    steps_.pop_front();
  }
}

void Trail::Fail(std::string_view broken_order) const {
  std::string told(broken_order);
  for (const std::string& step : steps_) {
    told += "\n  behind: " + step;
  }
  ADD_FAILURE() << told;
}

void OrderWatcher::Opens(const fs::path& path, platform::OpenMode mode) {
  const MutexLock lock(mutex_);
  const fs::path name = path.filename();
  if (mode == platform::OpenMode::kRead) {
    return;
  }
  trail_.Add("write " + name.string());
  off_ = off_ || name == kHalfRevocation;
  if (IsMarker(name)) {
    read_back_ = false;
    ended_ = name != kActive;
  }
}

void OrderWatcher::Opened(const platform::File& file, const fs::path& path) {
  const MutexLock lock(mutex_);
  open_[file.native()] = path;
}

void OrderWatcher::Writes(const platform::File& file) {
  const MutexLock lock(mutex_);
  unflushed_.insert(open_[file.native()]);
}

void OrderWatcher::Flushed(const platform::File& file) {
  const MutexLock lock(mutex_);
  unflushed_.erase(open_[file.native()]);
}

void OrderWatcher::Read(const platform::File& file) {
  const MutexLock lock(mutex_);
  if (open_[file.native()] == manifest_) {
    trail_.Add("read the manifest back");
    read_back_ = true;
  }
}

void OrderWatcher::Renames(const fs::path& from, const fs::path& to) {
  const MutexLock lock(mutex_);
  trail_.Add("rename " + from.filename().string() + " -> " + to.filename().string());
  if (unflushed_.erase(from) == 1 && from.extension() == ".tmp") {
    trail_.Fail("renamed before it was flushed: " + from.filename().string());
  }
}

void OrderWatcher::Renamed(const fs::path& to) {
  const MutexLock lock(mutex_);
  if (to.filename() == "manifest.json") {
    manifest_ = to;
    read_back_ = false;
  } else if (to.filename() == kRecord) {
    read_back_ = false;
  } else if (to.filename() == kRevocation) {
    revocation_ = to;
    switched_on_ = false;
  }
}

void OrderWatcher::Removes(const fs::path& path) {
  const MutexLock lock(mutex_);
  const fs::path name = path.filename();
  trail_.Add("remove " + name.string());
  if (IsMarker(name) && !MayGo(path)) {
    trail_.Fail("removed before a manifest that names it was read back: " + name.string());
  }
  if (name == kRevocation) {
    if (!switched_on_) {
      trail_.Fail("the revocation was removed before the registry said 1");
    }
    off_ = false;
    revocation_.clear();
  }
}

bool OrderWatcher::MayGo(const fs::path& marker) {
  const fs::path name = marker.filename();
  const std::string text = TextOf(marker);
  if (off_ || text.empty() || (read_back_ && ManifestNames(marker))) {
    return true;
  }
  const std::string close = FieldOf(TextOf(marker.parent_path() / kRecord), "state");
  if (name == kActive) {
    return ended_ || close == "failed";
  }
  return name == kRecord && close != "completed" && close != "failed";
}

bool OrderWatcher::ManifestNames(const fs::path& marker) {
  const std::string session = FieldOf(TextOf(marker), "session_id");
  return !IsPlain(session) || session == "unknown" ||
         TextOf(manifest_).find(session) != std::string::npos;
}

std::string OrderWatcher::TextOf(const fs::path& path) {
  constexpr std::uint64_t kMostBytes = 1U << 20U;
  auto file = files_.Open(path, platform::OpenMode::kRead);
  if (!file) {
    return {};
  }
  auto text = files_.Read(file.value(), kMostBytes);
  return text ? text.take() : std::string();
}

void OrderWatcher::Inspected(const fs::path& path, bool absent) {
  const MutexLock lock(mutex_);
  if (path.filename() == kRevocation) {
    off_ = !absent;
  } else if (path.filename() == kHalfRevocation) {
    off_ = off_ || !absent;
  }
}

void OrderWatcher::FolderFailed(const fs::path& path) {
  const MutexLock lock(mutex_);
  off_ = off_ || (std::exchange(asked_, false) && path.filename() == "incidents");
}

void OrderWatcher::ReadSwitch(const std::wstring& value, bool on) {
  const MutexLock lock(mutex_);
  asked_ = value == kSwitch;
  off_ = off_ || (asked_ && !on);
}

void OrderWatcher::SetsSwitch(const std::wstring& value, std::uint32_t data) {
  const MutexLock lock(mutex_);
  if (value != kSwitch) {
    return;
  }
  trail_.Add("switch " + std::to_string(data));
  if (data == 1 && TextOf(revocation_).empty()) {
    trail_.Fail("the registry was set to 1 while no revocation stands");
  }
}

void OrderWatcher::SetSwitch(const std::wstring& value, std::uint32_t data) {
  const MutexLock lock(mutex_);
  switched_on_ = value == kSwitch && data == 1;
}

void OrderWatcher::MadeMutex(const void* mutex, bool owned) {
  const MutexLock lock(mutex_);
  mutexes_[mutex] = owned;
}

void OrderWatcher::Waited(const void* object) {
  const MutexLock lock(mutex_);
  if (const auto found = mutexes_.find(object); found != mutexes_.end()) {
    found->second = true;
  }
}

void OrderWatcher::Releases(const void* mutex) {
  const MutexLock lock(mutex_);
  mutexes_[mutex] = false;
}

void OrderWatcher::Exits() {
  const MutexLock lock(mutex_);
  if (std::ranges::any_of(mutexes_, [](const auto& mutex) { return mutex.second; })) {
    trail_.Fail("the process exits and still owns a mutex");
  }
}

void CallOrder::See(const std::string& call) {
  trail_.Add(call);
  if (call.starts_with("CreateNamedMutex(")) {
    has_instance_mutex_ = true;
  } else if (call == "CloseHandle(mutex)") {
    has_instance_mutex_ = false;
  } else if (call.starts_with("Exit(") && has_instance_mutex_) {
    trail_.Fail("the process exits before its instance mutex is given up");
  } else if (call.starts_with("proxy 1")) {
    cleared_by_ = ThisThread();
  } else if (call == "new" || call.starts_with("proxy 2")) {
    cleared_by_ = 0;
  } else if (call.starts_with("close ") && cleared_by_ == ThisThread()) {
    trail_.Fail("the proxy was cleared before the engine was closed");
  }
}

}  // namespace korvane::test
