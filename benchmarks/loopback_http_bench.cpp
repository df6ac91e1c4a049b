// A GET of 200 bytes from this machine's own server, beside the same bytes over bare sockets and
// beside a library with a fresh handle per request, as the host makes a fresh session.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <string>
#include <string_view>
#include <thread>

#include "allocations.h"
#include "engine_api/local_http.h"

namespace korvane::bench {
namespace {

constexpr std::size_t kBodyBytes = 200;

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

const sockaddr* Generic(const sockaddr_in* address) {
  return reinterpret_cast<const sockaddr*>(address);
}

// Answers each connection once with the same bytes and closes it, until it is destroyed.
class Server {
 public:
  Server() : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = Loopback(0);
    socklen_t length = sizeof(address);
    if (::bind(listener_, Generic(&address), length) == 0 && ::listen(listener_, 64) == 0 &&
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
      port_ = ntohs(address.sin_port);
    }
    thread_ = std::thread([this] { Serve(); });
  }
  ~Server() {
    ::shutdown(listener_, SHUT_RDWR);
    thread_.join();
    ::close(listener_);
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  std::uint16_t port() const { return port_; }
  std::string Url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/version"; }

 private:
  void Serve() const {
    const std::string answer =
        "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n"
        "Connection: close\r\nContent-Length: 200\r\n\r\n" +
        std::string(kBodyBytes, 'v');
    for (;;) {
      const int client = ::accept(listener_, nullptr, nullptr);
      if (client < 0) {
        return;
      }
      std::array<char, 4096> request;
      if (::recv(client, request.data(), request.size(), 0) > 0) {
        static_cast<void>(::send(client, answer.data(), answer.size(), MSG_NOSIGNAL));
      }
      ::close(client);
    }
  }

  int listener_;
  std::uint16_t port_ = 0;
  std::thread thread_;
};

struct Ours {
  static std::size_t Get(const Server& server) {
    const auto body = LocalHttpGet(server.Url(), 1000);
    return body ? body->size() : 0;
  }
};

// The least that such a request can be: the body's size is taken for granted.
struct Sockets {
  static std::size_t Get(const Server& server) {
    constexpr std::string_view kRequest = "GET /version HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
    const int connection = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = Loopback(server.port());
    std::string answer;
    if (::connect(connection, Generic(&address), sizeof(address)) == 0 &&
        ::send(connection, kRequest.data(), kRequest.size(), MSG_NOSIGNAL) > 0) {
      std::array<char, 4096> piece;
      for (ssize_t bytes = 1; bytes > 0;) {
        bytes = ::recv(connection, piece.data(), piece.size(), 0);
        answer.append(piece.data(), bytes > 0 ? static_cast<std::size_t>(bytes) : 0);
      }
    }
    ::close(connection);
    const std::size_t head = answer.find("\r\n\r\n");
    return head == std::string::npos ? 0 : answer.size() - head - 4;
  }
};

struct Curl {
  static std::size_t Get(const Server& server) {
    std::string body;
    CURL* const handle = curl_easy_init();
    curl_easy_setopt(handle, CURLOPT_URL, server.Url().c_str());
    curl_easy_setopt(handle, CURLOPT_PROXY, "");
    curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, 1000L);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &body);
    curl_easy_setopt(
        handle, CURLOPT_WRITEFUNCTION,
        +[](char* data, std::size_t size, std::size_t count, void* target) {
          static_cast<std::string*>(target)->append(data, size * count);
          return size * count;
        });
    curl_easy_perform(handle);
    curl_easy_cleanup(handle);
    return body.size();
  }
};

template <typename Subject>
void Request(benchmark::State& state) {
  const Server server;
  const AllocationCount allocations;
  for (auto _ : state) {
    if (Subject::Get(server) != kBodyBytes) {
      state.SkipWithError("no answer");
    }
  }
  state.counters["peak_bytes"] = static_cast<double>(allocations.PeakBytes());
}
BENCHMARK(Request<Ours>)->Name("loopback_get/ours")->UseRealTime();
BENCHMARK(Request<Sockets>)->Name("loopback_get/sockets")->UseRealTime();
BENCHMARK(Request<Curl>)->Name("loopback_get/libcurl")->UseRealTime();

}  // namespace
}  // namespace korvane::bench
