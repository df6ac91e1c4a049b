// disconnect_path.h: takes the tunnel down, for every reason that there is.
//
// The order is fixed, since what is recorded about the close is what later tells a clean exit from
// an unexplained one: intent  >  engine close  >  close result and marker  >  crash sink  >  system
// proxy >  state  >  "vpn_disconnected". The engine is always closed before the proxy is cleared,
// and with nothing running the operation still clears the proxy and says the word: it is also the
// repair.
#pragma once

#include <string>

namespace korvane {

// A stop can't be refused and never fails for its caller; each step's failure is told and the next
// one runs. disable_proxy true is a full stop, false the teardown inside a reconnect, which says
// nothing. Takes lifecycle_mutex, which the thread may hold already; the engine's close has no
// bound.
void StopBoxInternal(bool disable_proxy, const std::string& intent);

}  // namespace korvane
