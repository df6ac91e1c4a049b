// operation_scope.h: counts the connect or disconnect that is under way.
//
// Only the outermost scope claims the phase: the teardown inside a reconnect keeps it at
// "starting". Lives inside lifecycle_mutex: declare the lock first, so that the scope closes before
// it.
#pragma once

#include "vpn/vpn_state.h"

namespace korvane {

class OperationScope {
 public:
  OperationScope(VpnState& vpn, std::int32_t phase) KORVANE_REQUIRES(vpn.lifecycle_mutex)
      : vpn_(vpn) {
    if (vpn_.op_depth.fetch_add(1) == 0) {
      vpn_.op_phase = phase;
    }
  }
  // An exception can't leave the count raised.
  ~OperationScope() { Close(); }
  OperationScope(const OperationScope&) = delete;
  OperationScope& operator=(const OperationScope&) = delete;

  // Closes once, however often the code gets here. Called ahead of a terminal state word, so that a
  // refresh right behind the word derives the same.
  void Close() {
    if (closed_) {
      return;
    }
    closed_ = true;
    if (vpn_.op_depth.fetch_sub(1) == 1) {
      vpn_.op_phase = kPhaseNone;
    }
  }

 private:
  VpnState& vpn_;
  bool closed_ = false;
};

}  // namespace korvane
