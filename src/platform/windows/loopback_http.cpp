#include "platform/loopback_http.h"

#include <windows.h>

#include <winhttp.h>

#include <new>
#include <vector>

#include "platform/no_destructor.h"
#include "platform/real_os.h"

namespace korvane::platform {

namespace {

struct CloseInternetHandle {
  void operator()(void* handle) const { ::WinHttpCloseHandle(handle); }
};
using OwnedInternetHandle = std::unique_ptr<void, CloseInternetHandle>;

// An option that the system doesn't know is no reason to fail.
template <typename T>
void SetRequestOption(HINTERNET request, DWORD option, T value) {
  ::WinHttpSetOption(request, option, &value, sizeof(value));
}

void KeepOnLoopback(HINTERNET request, int timeout_ms) {
  SetRequestOption<DWORD>(request, WINHTTP_OPTION_REDIRECT_POLICY,
                          WINHTTP_OPTION_REDIRECT_POLICY_NEVER);
  SetRequestOption(request, WINHTTP_OPTION_PROXY,
                   WINHTTP_PROXY_INFO{WINHTTP_ACCESS_TYPE_NO_PROXY, nullptr, nullptr});
  if (timeout_ms > 0) {
    // The four time-outs of the session don't bound the wait for an answer's whole head.
    SetRequestOption(request, WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT,
                     static_cast<DWORD>(timeout_ms));
  }
}

bool AnswersOk(HINTERNET request) {
  DWORD status = 0;
  DWORD size = sizeof(status);
  return ::WinHttpQueryHeaders(request, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                               WINHTTP_HEADER_NAME_BY_INDEX, &status, &size,
                               WINHTTP_NO_HEADER_INDEX) != 0 &&
         status == HTTP_STATUS_OK;
}

// The zeroed bytes that the next read goes into; nothing when the memory doesn't hold them.
std::optional<std::vector<char>> Buffer(DWORD available) {
  try {
    return std::vector<char>(std::size_t{available} + 1);
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

std::string ReadBody(HINTERNET request) {
  std::string body;
  for (;;) {
    DWORD available = 0;
    if (::WinHttpQueryDataAvailable(request, &available) == 0 || available == 0) {
      return body;
    }
    std::optional<std::vector<char>> buffer = Buffer(available);
    DWORD read = 0;
    if (!buffer || ::WinHttpReadData(request, buffer->data(), available, &read) == 0) {
      return body;
    }
    body.append(buffer->data(), read);
  }
}

class WindowsSession final : public LoopbackHttpSession {
 public:
  WindowsSession(OwnedInternetHandle session, int timeout_ms)
      : session_(std::move(session)), timeout_ms_(timeout_ms) {}

  std::optional<std::string> Get(std::uint16_t port, const std::wstring& target) override {
    const OwnedInternetHandle connection(
        ::WinHttpConnect(session_.get(), L"127.0.0.1", port, /*dwReserved=*/0));
    if (!connection) {
      return std::nullopt;
    }
    const OwnedInternetHandle request(
        ::WinHttpOpenRequest(connection.get(), L"GET", target.c_str(), nullptr, WINHTTP_NO_REFERER,
                             WINHTTP_DEFAULT_ACCEPT_TYPES, /*dwFlags=*/0));
    if (!request) {
      return std::nullopt;
    }
    KeepOnLoopback(request.get(), timeout_ms_);
    if (::WinHttpSendRequest(request.get(), WINHTTP_NO_ADDITIONAL_HEADERS, 0,
                             WINHTTP_NO_REQUEST_DATA, 0, 0, 0) == 0 ||
        ::WinHttpReceiveResponse(request.get(), nullptr) == 0 || !AnswersOk(request.get())) {
      return std::nullopt;
    }
    return ReadBody(request.get());
  }

 private:
  const OwnedInternetHandle session_;
  const int timeout_ms_;
};

class WindowsLoopbackHttp final : public LoopbackHttp {
 public:
  std::unique_ptr<LoopbackHttpSession> Open(int timeout_ms) override {
    OwnedInternetHandle session(::WinHttpOpen(kLoopbackHttpAgent, WINHTTP_ACCESS_TYPE_DEFAULT_PROXY,
                                              WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS,
                                              /*dwFlags=*/0));
    if (!session) {
      return nullptr;
    }
    ::WinHttpSetTimeouts(session.get(), timeout_ms, timeout_ms, timeout_ms, timeout_ms);
    return std::make_unique<WindowsSession>(std::move(session), timeout_ms);
  }
};

}  // namespace

LoopbackHttp& RealLoopbackHttp() {
  static NoDestructor<WindowsLoopbackHttp> http;
  return *http;
}

}  // namespace korvane::platform
