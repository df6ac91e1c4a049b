// played_host.h: a host for the console that does what a test tells it, byte for byte.
//
// It has no codec: a call is its bytes, and so are answers. The console is the process's, so a
// process plays one script.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "flutter_boundary/flutter_windows_abi.h"
#include "support/temporary_folder.h"

namespace korvane::test {

// Objects keep their order, as the console's lines do.
using Json = nlohmann::ordered_json;

struct PlayedCall {
  std::string name;  // a text of up to 253 bytes in front; empty when there is none
  std::string hex;   // the whole message
  FlutterDesktopMessengerRef messenger;
  const FlutterDesktopMessageResponseHandle* handle;

  // Both take hexadecimal digits, from any thread.
  void Answer(const std::string& envelope) const;
  // Towards Dart, on a channel by its last word.
  void Send(const char* channel, const std::string& message) const;
};

class PlayedHost {
 public:
  // Called on the window thread with each call of the channel "vpn". Answers null when unset.
  std::function<void(const PlayedCall&)> on_call;
  // Once, when the engine is there and before the script begins to be played.
  std::function<void(FlutterDesktopEngineRef)> on_engine;

  // Plays the lines to the end of the window; what the console printed from then on, without times.
  // The console ends the process when a wait runs out.
  std::vector<Json> Play(const std::vector<std::string>& script);

 private:
  void Run();

  TemporaryFolder folder_;
};

// The values of the lines that have the key, in their order.
std::vector<Json> ValuesOf(const std::vector<Json>& lines, const char* key);

}  // namespace korvane::test
