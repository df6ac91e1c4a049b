// service.h: one engine service, from its configuration to its end.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "engine/clash_api.h"
#include "engine/configuration.h"
#include "net/workers.h"
#include "platform/mutex.h"

namespace korvane::stand_in {

// Owns its sockets and threads; all of them are gone when Close has returned. Any thread.
class Service {
 public:
  explicit Service(Configuration configuration);
  ~Service() { Close(); }

  const SessionOptions& options() const { return configuration_.options; }

  // Opens everything, or nothing. The text of the failure, or nothing when the service runs. A
  // service starts once.
  std::optional<std::string> Start() KORVANE_EXCLUDES(mutex_);
  void Close() KORVANE_EXCLUDES(mutex_);

 private:
  struct Opened {
    std::vector<net::Listener> inbounds;
    std::optional<net::Listener> clash;
    std::vector<net::Socket> held;
  };

  std::optional<std::string> Open(Opened& opened) const;
  std::optional<std::string> OpenInbounds(Opened& opened) const;
  std::optional<std::string> HoldConnections(Opened& opened) const;
  void Run(Opened opened) KORVANE_REQUIRES(mutex_);

  const Configuration configuration_;
  net::StopSignal stop_;
  OutboundGraph graph_;
  const OutboundDialer dialer_;
  std::optional<ClashApi> clash_;
  // Guards starting and closing; never taken by a worker, which Close waits for.
  Mutex mutex_;
  bool started_ KORVANE_GUARDED_BY(mutex_) = false;
  std::vector<net::Socket> held_ KORVANE_GUARDED_BY(mutex_);
  net::Workers workers_;
};

}  // namespace korvane::stand_in
