// loopback_http.h: a GET to this machine's own 127.0.0.1, plain HTTP, one session per request.
//
// A session never connects to anything but 127.0.0.1: it follows no redirect and goes through no
// proxy, whatever the answer, the environment or the machine's settings say. Any thread, as many
// sessions at once as wanted; nothing is shared between them. Get blocks.
//
// Nothing throws but std::bad_alloc, for a body that the memory doesn't hold.
//
// Time-outs are per phase (connect, send, and each wait for bytes of the answer), so that a body
// that comes slowly but steadily may take any time. A time of 0 or below leaves the system's own.
//
// Windows, in this order:
//   Open   WinHttpOpen(kLoopbackHttpAgent, WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, null, null, 0);
//          WinHttpSetTimeouts with the time four times, result ignored
//   Get    WinHttpConnect("127.0.0.1", port);
//          WinHttpOpenRequest("GET", target, null, null, null, 0);
//          WinHttpSetOption for "redirect never", "no proxy" and the wait for the answer's head,
//          all of which the default would take away from the promises above, results ignored;
//          WinHttpSendRequest; WinHttpReceiveResponse; WinHttpQueryHeaders for the status number;
//          WinHttpQueryDataAvailable and WinHttpReadData until nothing is available
//   close  request, connection, session
// Wine takes "no proxy" and does nothing with it, so http_proxy must be unset there, as
// scripts/lib/wine-run does; Windows itself never reads that variable.
// Linux: a socket whose waits are bounded by the system; heads of more than 64 KiB are refused.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace korvane::platform {

inline constexpr wchar_t kLoopbackHttpAgent[] = L"Dramvex/1.0";

// One request's session. Used once, by one thread.
class LoopbackHttpSession {
 public:
  virtual ~LoopbackHttpSession() = default;

  // The body of an answer with the status 200, possibly empty; nothing for any other status, no
  // answer, or no connection. A body that breaks off is given as far as it came. `target` is path
  // and query, one character per byte.
  virtual std::optional<std::string> Get(std::uint16_t port, const std::wstring& target) = 0;
};

class LoopbackHttp {
 public:
  virtual ~LoopbackHttp() = default;

  // Null when the system gives no session. Connects to nothing yet.
  virtual std::unique_ptr<LoopbackHttpSession> Open(int timeout_ms) = 0;
};

}  // namespace korvane::platform
