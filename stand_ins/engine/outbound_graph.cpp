#include "engine/outbound_graph.h"

#include <algorithm>
#include <utility>

namespace korvane::stand_in {

OutboundGraph::OutboundGraph(std::vector<Outbound> outbounds) : outbounds_(std::move(outbounds)) {
  for (const Outbound& outbound : outbounds_) {
    if (outbound.type == "selector") selected_[outbound.tag] = outbound.default_member;
  }
}

const Outbound* OutboundGraph::Find(const std::string& tag) const {
  const auto found = std::ranges::find(outbounds_, tag, &Outbound::tag);
  return found == outbounds_.end() ? nullptr : &*found;
}

std::string OutboundGraph::Now(const std::string& tag) const {
  const Outbound* outbound = Find(tag);
  const MutexLock lock(mutex_);
  return NowLocked(*outbound);
}

std::string OutboundGraph::Leaf(const std::string& tag) const {
  const MutexLock lock(mutex_);
  return LeafLocked(tag);
}

std::string OutboundGraph::NowLocked(const Outbound& outbound) const {
  if (outbound.type == "selector") return selected_.at(outbound.tag);
  if (outbound.type != "urltest") return {};
  const std::string* fastest = &outbound.members.front();
  std::optional<int> best;
  for (const std::string& member : outbound.members) {
    const auto delay = delays_.find(LeafLocked(member));
    if (delay == delays_.end() || (best && delay->second.delay_ms >= *best)) continue;
    best = delay->second.delay_ms;
    fastest = &member;
  }
  return *fastest;
}

std::string OutboundGraph::LeafLocked(const std::string& tag) const {
  // The configuration has no circles, so the chain has an end.
  const Outbound* outbound = Find(tag);
  while (outbound != nullptr && !outbound->members.empty()) outbound = Find(NowLocked(*outbound));
  return outbound == nullptr ? tag : outbound->tag;
}

SelectStatus OutboundGraph::Select(const std::string& tag, const std::string& member) {
  const Outbound* outbound = Find(tag);
  if (outbound->type != "selector") return SelectStatus::kNoSelector;
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
  const MutexLock lock(mutex_);
  const auto found = delays_.find(LeafLocked(tag));
  if (found == delays_.end()) return std::nullopt;
  return found->second;
}

}  // namespace korvane::stand_in
