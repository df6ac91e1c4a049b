// outbound_graph.h: the outbounds of a service, what each group has chosen, and what was measured.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "engine/configuration.h"
#include "platform/mutex.h"

namespace korvane::stand_in {

// One measured delay.
struct DelayRecord {
  std::chrono::system_clock::time_point time;
  int delay_ms = 0;
};

enum class SelectStatus { kDone, kNoSelector, kNoMember };

// The outbounds have no circles. Any thread. Every tag that is passed is one of them, but for Find
// and Leaf.
class OutboundGraph {
 public:
  explicit OutboundGraph(std::vector<Outbound> outbounds);

  // Null when there is none; lives as long as the graph.
  const Outbound* Find(const std::string& tag) const;
  const std::vector<Outbound>& outbounds() const { return outbounds_; }

  // A selector's choice; of a urltest group the member that was last measured the fastest, its
  // first while none was. Empty for what is no group.
  std::string Now(const std::string& tag) const KORVANE_EXCLUDES(mutex_);
  // What stands at the end of the chain of choices; the tag itself when it is no group.
  std::string Leaf(const std::string& tag) const KORVANE_EXCLUDES(mutex_);

  SelectStatus Select(const std::string& tag, const std::string& member) KORVANE_EXCLUDES(mutex_);

  // A measured delay of a leaf; nothing for a failed test, which forgets the last one.
  void Record(const std::string& leaf, std::optional<int> delay_ms) KORVANE_EXCLUDES(mutex_);
  // The last delay of the tag's leaf.
  std::optional<DelayRecord> LastDelay(const std::string& tag) const KORVANE_EXCLUDES(mutex_);

 private:
  using Leaves = std::map<std::string, std::string>;  // by tag

  Leaves AllLeaves() const KORVANE_REQUIRES(mutex_);
  // `leaves` holds those of its members.
  std::string NowOf(const Outbound& outbound, const Leaves& leaves) const KORVANE_REQUIRES(mutex_);

  const std::vector<Outbound> outbounds_;
  const std::vector<const Outbound*> members_first_;
  mutable Mutex mutex_;
  std::map<std::string, std::string> selected_ KORVANE_GUARDED_BY(mutex_);  // by selector
  std::map<std::string, DelayRecord> delays_ KORVANE_GUARDED_BY(mutex_);    // by leaf
};

}  // namespace korvane::stand_in
