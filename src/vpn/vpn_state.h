// vpn_state.h: the few words of state from which everything about the tunnel is told.
//
// One record per process, from first use to the process's end; never destroyed, since detached
// workers may still read it while the process ends. The window thread reads the atomics without a
// lock and never waits for a connect or a disconnect, which may hold lifecycle_mutex for seconds.
//
//   state                      is_running, service_id   op_depth  op_phase   CurrentVpnState
//   nothing runs               false, 0                 0         none       vpn_disconnected
//   a start is under way       false, 0                 >= 1      starting   vpn_connecting
//   the tunnel runs            true, not 0              any       any        vpn_connected
//   a stop, engine closed      true, 0                  >= 1      stopping   vpn_disconnecting
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "flutter_boundary/encodable_value.h"
#include "flutter_boundary/event_channel.h"
#include "flutter_boundary/event_sink.h"
#include "flutter_boundary/method_channel.h"
#include "platform/mutex.h"
#include "platform/window_system.h"
#include "vpn/engine_table.h"
#include "vpn/native_error_slot.h"

namespace korvane {

// What op_phase holds: the kind of operation that opened the outermost scope.
inline constexpr std::int32_t kPhaseNone = 0;
inline constexpr std::int32_t kPhaseStarting = 1;
inline constexpr std::int32_t kPhaseStopping = 2;

inline constexpr char kVpnConnected[] = "vpn_connected";
inline constexpr char kVpnConnecting[] = "vpn_connecting";
inline constexpr char kVpnDisconnecting[] = "vpn_disconnecting";
inline constexpr char kVpnDisconnected[] = "vpn_disconnected";
// Said by a refused TUN start alone; never derived.
inline constexpr char kVpnElevationRequired[] = "vpn_elevation_required";

// One decision about what may be said or done, for a support reader.
struct VpnDiagnosticEvent {
  std::string component;
  std::string decision;
  bool is_running = false;
  bool service_active = false;
  std::int32_t op_depth = 0;
  std::string op_phase;
  std::int64_t timestamp = 0;  // milliseconds since the Unix epoch
};

struct VpnState {
  std::atomic<bool> is_running{false};
  // The engine's identifier of the running service; 0 when there is none.
  std::atomic<std::uint64_t> service_id{0};
  std::atomic<std::int32_t> op_depth{0};
  // Written with lifecycle_mutex held, read without.
  std::atomic<std::int32_t> op_phase{kPhaseNone};
  // Written by `loadVPNPreference` alone.
  std::atomic<bool> autoConfigureProxy{true};
  // Nothing sets it in this release; a successful load of the engine clears it.
  std::atomic<bool> core_integrity_failed{false};
  std::atomic<std::uint32_t> tun_name_counter{0};
  std::atomic<platform::WindowHandle> event_window{nullptr};

  // Plain locks, never held together. Written before the lock that comes first.
  Mutex queue_mutex;
  Mutex sink_mutex;
  // Held through the whole of a start or a stop; a start calls a stop inside it.
  RecursiveMutex lifecycle_mutex KORVANE_ACQUIRED_BEFORE(queue_mutex, sink_mutex);

  // The configuration that runs or is about to; JSON text that is never parsed here.
  std::string config_text KORVANE_GUARDED_BY(lifecycle_mutex);
  // Some close in this process was not confirmed: the old engine may still be alive inside it.
  bool unconfirmed_close_latched KORVANE_GUARDED_BY(lifecycle_mutex) = false;

  std::deque<std::string> pending_states KORVANE_GUARDED_BY(queue_mutex);
  std::deque<NativeErrorEvent> pending_errors KORVANE_GUARDED_BY(queue_mutex);
  std::deque<VpnDiagnosticEvent> pending_diagnostics KORVANE_GUARDED_BY(queue_mutex);
  // Written and read with queue_mutex held, cleared by a successful start without it.
  NativeErrorSlot last_native_error;

  // Written on the window thread before any connect can be asked for, then only read.
  EngineTable engine;
  std::unique_ptr<flutter::MethodChannel<>> method_channel;
  std::unique_ptr<flutter::EventChannel<>> event_channel;
  std::unique_ptr<flutter::EventSink<>> event_sink KORVANE_GUARDED_BY(sink_mutex);
};

VpnState& vpn_state();

// Whether a service runs. Any thread, no lock; the two reads are not one step.
bool IsVpnConnected();

// One of the first four state words. A running service wins over any operation in progress.
std::string CurrentVpnState();

// A copy of config_text, taken under lifecycle_mutex.
std::string CopyConfigText();

}  // namespace korvane
