// local_web PORT...: serves a page on 127.0.0.1 at each of the ports until it is ended.
#include <charconv>
#include <exception>
#include <iostream>
#include <list>
#include <string_view>

#include "web/web_server.h"

namespace {

int Fail(std::string_view what, std::string_view why) {
  std::cerr << "local_web: " << what << why << '\n';
  return 1;
}

bool ReadPort(std::string_view text, std::uint16_t& port) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, port);
  return error == std::errc() && stop == end;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    return Fail("usage: local_web PORT...", "");
  }
  try {
    std::list<korvane::stand_in::WebServer> servers;
    for (int i = 1; i < argc; ++i) {
      std::uint16_t port = 0;
      if (!ReadPort(argv[i], port)) {
        return Fail("no port number: ", argv[i]);
      }
      servers.emplace_back(port);
      std::cout << "serving " << servers.back().Url("/") << std::endl;
    }
    const korvane::net::StopSignal never_raised;
    korvane::net::Wait({}, &never_raised, korvane::net::Deadline::Never());
  } catch (const std::exception& failure) {
    return Fail("", failure.what());
  }
  return 0;
}
