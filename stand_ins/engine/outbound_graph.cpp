#include "engine/outbound_graph.h"

#include <algorithm>
#include <utility>

#include "engine/outbound_order.h"

namespace korvane::stand_in {

OutboundGraph::OutboundGraph(std::vector<Outbound> outbounds)
    : outbounds_(std::move(outbounds)), members_first_(MembersFirst(outbounds_)) {
  for (const Outbound& outbound : outbounds_) {
    if (outbound.type == "selector") {
      selected_[outbound.tag] = outbound.default_member;
    }
  }
}

const Outbound* OutboundGraph::Find(const std::string& tag) const {
  const auto found = std::ranges::find(outbounds_, tag, &Outbound::tag);
  return found == outbounds_.end() ? nullptr : &*found;
}

std::string OutboundGraph::Now(const std::string& tag) const {
  const Outbound* outbound = Find(tag);
  const MutexLock lock(mutex_);
  return NowOf(*outbound, AllLeaves());
}

std::string OutboundGraph::Leaf(const std::string& tag) const {
  const MutexLock lock(mutex_);
  const Leaves leaves = AllLeaves();
  const auto leaf = leaves.find(tag);
  return leaf == leaves.end() ? tag : leaf->second;
}

OutboundGraph::Leaves OutboundGraph::AllLeaves() const {
  // Members first: by recursion a chain of groups would take twice as long with each link.
  Leaves leaves;
  for (const Outbound* outbound : members_first_) {
    const bool group = !outbound->members.empty();
    leaves[outbound->tag] = group ? leaves.at(NowOf(*outbound, leaves)) : outbound->tag;
  }
  return leaves;
}

std::string OutboundGraph::NowOf(const Outbound& outbound, const Leaves& leaves) const {
  if (outbound.type == "selector") {
    return selected_.at(outbound.tag);
  }
  if (outbound.type != "urltest") {
    return {};
  }
  const std::string* fastest = &outbound.members.front();
  std::optional<int> best;
  for (const std::string& member : outbound.members) {
    const auto delay = delays_.find(leaves.at(member));
    if (delay == delays_.end() || (best && delay->second.delay_ms >= *best)) {
      continue;
    }
    best = delay->second.delay_ms;
    fastest = &member;
  }
  return *fastest;
}

SelectStatus OutboundGraph::Select(const std::string& tag, const std::string& member) {
  const Outbound* outbound = Find(tag);
  if (outbound->type != "selector") {
    return SelectStatus::kNoSelector;
  }
  if (std::ranges::find(outbound->members, member) == outbound->members.end()) {
    return SelectStatus::kNoMember;
  }
  const MutexLock lock(mutex_);
  selected_[tag] = member;
  return SelectStatus::kDone;
}

void OutboundGraph::Record(const std::string& leaf, std::optional<int> delay_ms) {
  const MutexLock lock(mutex_);
  if (delay_ms) {
    delays_[leaf] = {std::chrono::system_clock::now(), *delay_ms};
  } else {
    delays_.erase(leaf);
  }
}

std::optional<DelayRecord> OutboundGraph::LastDelay(const std::string& tag) const {
  const std::string leaf = Leaf(tag);
  const MutexLock lock(mutex_);
  const auto found = delays_.find(leaf);
  if (found == delays_.end()) {
    return std::nullopt;
  }
  return found->second;
}

}  // namespace korvane::stand_in
