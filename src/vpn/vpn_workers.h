// vpn_workers.h: the long methods, each on a thread of its own.
//
// A method that may take long starts one detached worker for that call alone; there is no pool and
// no limit, and nobody joins it. The worker owns the method's result and completes it on its own
// thread. But for the one of runtime_diagnostics.h, no exception leaves a worker: what reaches its
// top is written, told to the interface, and answered.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "flutter_boundary/method_result.h"
#include "platform/detached_thread.h"

namespace korvane {

using OwnedResult = std::unique_ptr<flutter::MethodResult<>>;

// Runs `worker` with the result that it is to answer, and copies of the inputs.
template <typename Worker, typename... Inputs>
void HandOver(OwnedResult result, Worker worker, Inputs... inputs) noexcept {
  platform::RunDetached([result = std::move(result), worker, ... inputs = std::move(inputs)] {
    worker(result, inputs...);
  });
}

// The three ways into a start. The first two are the same steps and differ in what they write when
// an exception reaches the top; they are two functions so that each can be told apart in a stack
// trace.
void LoadVpnPreferenceWorker(const OwnedResult& result, const std::string& config);
void ConnectForNodeSwitchingWorker(const OwnedResult& result, const std::string& config);
void DoConnectVpnWorker(const OwnedResult& result);

// The two full stops.
void StopVpnWorker(const OwnedResult& result);
void DisconnectForNodeSwitchingWorker(const OwnedResult& result);

// Answers with whether the proxy settings were accepted.
void ClearSystemProxyWorker(const OwnedResult& result);

// Runs the takeover and answers with its outcome.
void RequestAdminPrivilegesWorker(const OwnedResult& result);

}  // namespace korvane
