// order_watcher.h: the orders that hold whatever a test is about, watched in every test.
//
// OrderWatcher stands in each CountingOs and watches files, the registry and mutexes:
//   * a marker or the record of a session goes only behind a manifest that was written and read
//     back and names it; or the active marker behind an end marker that was tried, or beside a
//     record of a failed close; or a record without a close result, whose intent is withdrawn; or
//     any of them while diagnostics are off
//   * the switch in the registry becomes 1 only while a revocation that this process wrote stands,
//     and the revocation goes only behind that
//   * no mutex is owned when the process exits
//   * nothing that ends in ".tmp" is renamed with bytes that weren't flushed
// CallOrder stands in each CallJournal and watches the calls that the fakes write there:
//   * what closes the engine and clears the proxy closes the engine first
//   * the instance mutex is closed when the process exits
// A broken order fails the running test, with what came before it. Any thread.
#pragma once

#include <cstdint>
#include <deque>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "platform/files.h"
#include "platform/mutex.h"

namespace korvane::test {

// The last steps; a failure tells them.
class Trail {
 public:
  void Add(std::string step);
  void Fail(std::string_view broken_order) const;

 private:
  std::deque<std::string> steps_;
};

class OrderWatcher {
 public:
  // The files beneath the decorator, to look at; must outlive this.
  explicit OrderWatcher(platform::Files& files) : files_(files) {}

  // Steps of files, each told before it is made or once it has gone well, as its name says.
  void Opens(const std::filesystem::path& path, platform::OpenMode mode);
  void Opened(const platform::File& file, const std::filesystem::path& path);
  void Writes(const platform::File& file);
  void Flushed(const platform::File& file);
  void Read(const platform::File& file);
  void Renames(const std::filesystem::path& from, const std::filesystem::path& to);
  void Renamed(const std::filesystem::path& to);
  void Removes(const std::filesystem::path& path);
  // Steps of the preference, with their results.
  void Inspected(const std::filesystem::path& path, bool absent);
  void FolderFailed(const std::filesystem::path& path);
  void ReadSwitch(const std::wstring& value, bool on);
  void SetsSwitch(const std::wstring& value, std::uint32_t data);
  void SetSwitch(const std::wstring& value, std::uint32_t data);
  // Steps of mutexes and of the process's end.
  void MadeMutex(const void* mutex, bool owned);
  void Waited(const void* object);  // and got it
  void Releases(const void* mutex);
  void Exits();

 private:
  bool MayGo(const std::filesystem::path& marker) KORVANE_REQUIRES(mutex_);
  bool ManifestNames(const std::filesystem::path& marker) KORVANE_REQUIRES(mutex_);
  std::string TextOf(const std::filesystem::path& path) KORVANE_REQUIRES(mutex_);

  platform::Files& files_;
  Mutex mutex_;
  Trail trail_ KORVANE_GUARDED_BY(mutex_);
  std::map<std::intptr_t, std::filesystem::path> open_ KORVANE_GUARDED_BY(mutex_);
  std::set<std::filesystem::path> unflushed_ KORVANE_GUARDED_BY(mutex_);
  std::filesystem::path manifest_ KORVANE_GUARDED_BY(mutex_);  // the last that was written
  bool read_back_ KORVANE_GUARDED_BY(mutex_) = false;
  bool ended_ KORVANE_GUARDED_BY(mutex_) = false;  // an end marker was tried
  bool off_ KORVANE_GUARDED_BY(mutex_) = false;    // diagnostics; in doubt they are on
  bool asked_ KORVANE_GUARDED_BY(mutex_) = false;  // the switch was read just now
  std::filesystem::path revocation_ KORVANE_GUARDED_BY(mutex_);
  bool switched_on_ KORVANE_GUARDED_BY(mutex_) = false;
  std::map<const void*, bool> mutexes_ KORVANE_GUARDED_BY(mutex_);  // and whether each is owned
};

class CallOrder {
 public:
  // Whoever has the calls holds a lock.
  void See(const std::string& call);

 private:
  Trail trail_;
  std::uint64_t cleared_by_ = 0;  // the thread, if any, since an engine was made last
  bool has_instance_mutex_ = false;
};

}  // namespace korvane::test
