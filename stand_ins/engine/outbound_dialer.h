// outbound_dialer.h: connections through an outbound, and how long a request through one takes.
#pragma once

#include <string>

#include "engine/outbound_graph.h"
#include "net/socket.h"

namespace korvane::stand_in {

enum class RouteStatus { kDone, kBlocked, kUnknownHost, kRefused, kTimedOut, kStopped };

struct Routed {
  RouteStatus status = RouteStatus::kRefused;
  net::Socket socket;  // valid with kDone alone
};

enum class DelayStatus { kDone, kTimedOut, kFailed };

struct DelayResult {
  DelayStatus status = DelayStatus::kFailed;
  int delay_ms = 0;  // with kDone: 1 or more, or what the options say
};

// Refers to the graph, the options and the signal, which outlive it. Any thread.
class OutboundDialer {
 public:
  OutboundDialer(OutboundGraph& graph, const SessionOptions& options, const net::StopSignal& stop)
      : graph_(graph), options_(options), stop_(stop) {}

  // Connects by way of the tag's leaf: "block" refuses, any other connects straight out, with the
  // delay and the fault that the options give the leaf. An empty tag goes straight out.
  Routed Dial(const std::string& tag, const net::Authority& to, net::Deadline deadline) const;

  // Requests the URL by way of the tag and records the result for its leaf. Any answer counts.
  DelayResult MeasureDelay(const std::string& tag, const std::string& url,
                           std::chrono::milliseconds timeout) const;

 private:
  DelayStatus Probe(const std::string& leaf, const std::string& url, net::Deadline deadline) const;
  OutboundOptions OptionsOf(const std::string& leaf) const;

  OutboundGraph& graph_;
  const SessionOptions& options_;
  const net::StopSignal& stop_;
};

}  // namespace korvane::stand_in
