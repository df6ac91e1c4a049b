#include "engine/outbound_dialer.h"

#include <algorithm>

#include "net/http_get.h"

namespace korvane::stand_in {
namespace {

using net::Deadline;
using net::IoStatus;
using std::chrono::milliseconds;

RouteStatus FromDial(net::DialStatus status) {
  switch (status) {
    case net::DialStatus::kDone:
      return RouteStatus::kDone;
    case net::DialStatus::kUnknownHost:
      return RouteStatus::kUnknownHost;
    case net::DialStatus::kRefused:
      return RouteStatus::kRefused;
    case net::DialStatus::kTimedOut:
      return RouteStatus::kTimedOut;
    case net::DialStatus::kStopped:
      return RouteStatus::kStopped;
  }
  return RouteStatus::kRefused;
}

// Waits as long as the outbound is to be slow; kDone when the connection may go on.
RouteStatus Linger(milliseconds time, Deadline deadline, const net::StopSignal& stop) {
  const int left = deadline.RemainingMs();
  const bool too_long = left >= 0 && milliseconds(left) < time;
  if (stop.RaisedWithin(too_long ? milliseconds(left) : time)) {
    return RouteStatus::kStopped;
  }
  return too_long ? RouteStatus::kTimedOut : RouteStatus::kDone;
}

RouteStatus PlayFault(DialFault fault, Deadline deadline, const net::StopSignal& stop) {
  if (fault == DialFault::kNone) {
    return RouteStatus::kDone;
  }
  if (fault == DialFault::kRefused) {
    return RouteStatus::kRefused;
  }
  const net::WaitStatus waited = net::Wait({}, &stop, deadline);
  return waited == net::WaitStatus::kStopped ? RouteStatus::kStopped : RouteStatus::kTimedOut;
}

}  // namespace

OutboundOptions OutboundDialer::OptionsOf(const std::string& leaf) const {
  const auto found = options_.outbounds.find(leaf);
  return found == options_.outbounds.end() ? OutboundOptions() : found->second;
}

Routed OutboundDialer::Dial(const std::string& tag, const net::Authority& to,
                            Deadline deadline) const {
  const std::string leaf = graph_.Leaf(tag);
  const Outbound* outbound = graph_.Find(leaf);
  if (outbound != nullptr && outbound->type == "block") {
    return {RouteStatus::kBlocked, {}};
  }
  const OutboundOptions options = OptionsOf(leaf);
  RouteStatus status = Linger(options.delay, deadline, stop_);
  if (status == RouteStatus::kDone) {
    status = PlayFault(options.fault, deadline, stop_);
  }
  if (status != RouteStatus::kDone) {
    return {status, {}};
  }
  net::Dialled dialled = net::Dial(to.host, to.port, &stop_, deadline);
  return {FromDial(dialled.status), std::move(dialled.socket)};
}

DelayStatus OutboundDialer::Probe(const std::string& leaf, const std::string& url_text,
                                  Deadline deadline) const {
  const auto url = net::ParseUrl(options_.probe_url.empty() ? url_text : options_.probe_url);
  if (!url || url->scheme != "http") {
    return DelayStatus::kFailed;
  }
  if (deadline.passed()) {
    return DelayStatus::kTimedOut;
  }
  Routed routed = Dial(leaf, url->authority, deadline);
  if (routed.status == RouteStatus::kTimedOut) {
    return DelayStatus::kTimedOut;
  }
  if (routed.status != RouteStatus::kDone) {
    return DelayStatus::kFailed;
  }
  net::HttpReader reader(routed.socket);
  net::HttpHead head;
  const IoStatus status = net::GetHead(routed.socket, reader, *url, false, head, deadline);
  if (status == IoStatus::kDone) {
    return DelayStatus::kDone;
  }
  return status == IoStatus::kTimedOut ? DelayStatus::kTimedOut : DelayStatus::kFailed;
}

DelayResult OutboundDialer::MeasureDelay(const std::string& tag, const std::string& url,
                                         milliseconds timeout) const {
  const std::string leaf = graph_.Leaf(tag);
  const auto start = std::chrono::steady_clock::now();
  const DelayStatus status = Probe(leaf, url, Deadline::In(timeout));
  if (status != DelayStatus::kDone) {
    graph_.Record(leaf, std::nullopt);
    return {status, 0};
  }
  const auto taken = std::chrono::steady_clock::now() - start;
  // 0 would read as "not reached".
  const auto measured =
      std::max<milliseconds::rep>(1, std::chrono::duration_cast<milliseconds>(taken).count());
  const int delay_ms = OptionsOf(leaf).report_delay_ms.value_or(static_cast<int>(measured));
  graph_.Record(leaf, delay_ms);
  return {DelayStatus::kDone, delay_ms};
}

}  // namespace korvane::stand_in
