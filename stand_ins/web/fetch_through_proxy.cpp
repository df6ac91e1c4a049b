// fetch_through_proxy URL PROXY: fetches a plain http URL through an HTTP proxy ("host:port", or
// "direct" for none) and prints the status and the length of the body. Exit code 0 when there was
// an answer, 1 when there was none, 2 for bad arguments.
#include <exception>
#include <iostream>
#include <optional>
#include <string_view>

#include "net/http_get.h"

namespace {

using korvane::net::Authority;
using korvane::net::Deadline;
using korvane::net::Url;

constexpr std::chrono::seconds kPatience{30};
constexpr std::size_t kMostBody = std::size_t{1024} * 1024 * 1024;

int Fail(int code, std::string_view what, std::string_view why) {
  std::cerr << "fetch_through_proxy: " << what << why << '\n';
  return code;
}

int Fetch(const Url& url, const std::optional<Authority>& proxy) {
  std::string error;
  const auto got = korvane::net::HttpGet(url, proxy, kMostBody, Deadline::In(kPatience), error);
  if (!got) {
    return Fail(1, error, "");
  }
  std::cout << "status " << got->head.Status() << ", " << got->body.size() << " bytes\n";
  return 0;
}

int Run(std::string_view url_text, std::string_view proxy_text) {
  const auto url = korvane::net::ParseUrl(url_text);
  if (!url || url->scheme != "http") {
    return Fail(2, "no plain http URL: ", url_text);
  }
  if (proxy_text == "direct") {
    return Fetch(*url, std::nullopt);
  }
  const auto proxy = korvane::net::ParseAuthority(proxy_text, 0);
  if (!proxy) {
    return Fail(2, "no host and port: ", proxy_text);
  }
  return Fetch(*url, proxy);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    return Fail(2, "usage: fetch_through_proxy URL PROXY", "");
  }
  try {
    return Run(argv[1], argv[2]);
  } catch (const std::exception& failure) {
    return Fail(1, failure.what(), "");
  }
}
