#include "samples.h"

#include <array>
#include <string_view>

namespace korvane::bench {

namespace {

constexpr std::array<std::string_view, 10> kCleanLines = {
    "INFO[0012] router: updated default interface eth0, index 3",
    "DEBUG[0012] dns: exchanged A record in 43 ms, 2 answers, no error",
    "INFO[0013] inbound/mixed[mixed-in]: started at the loopback address",
    "INFO[0013] outbound/selector[proxy]: selected node 17 of 48 after a delay of 81 ms",
    "WARN[0014] connection: upload closed after 120 s: context deadline exceeded",
    "DEBUG[0015] router: match[4] rule_set=streaming outbound=proxy",
    "ERROR[0016] connection: dial tcp: i/o timeout at service.go:120",
    "INFO[0017] experimental/clash: restful api listening, 12:30:05, 7 clients",
    "DEBUG[0018] inbound/tun[tun-in]: opened stream 4711, mtu 9000, gso off",
    "TRACE[0019] transport/hysteria2: congestion window 131072, rtt 38 ms, loss 0.2 percent",
};

constexpr std::array<std::string_view, 8> kRawLines = {
    "\x1B[36mINFO\x1B[0m[0020] outbound/vless[node-17]: outbound connection to 203.0.113.77:443",
    "INFO[0021] inbound/mixed[mixed-in]: inbound connection to media.cdn.example.com:8443",
    "DEBUG[0022] provider: GET https://sub.example.net/api/v1/client?token=ab12cd34&flag=1 done",
    "DEBUG[0022] dns: AAAA 2001:db8:85a3::8a2e:370:7334 through fe80::1%eth0",
    "DEBUG[0023] auth: user 9f1c2d3e4b5a69788796a5b4c3d2e1f00112233445566778 accepted",
    "WARN[0024] provider: link vless%3A%2F%2Fsecret%40node.example.org%3A443 was refused",
    "DEBUG[0024] tls: key c2VjcmV0LWtleS1mb3ItbWVhc3VyZW1lbnQtb25seQ== for edge.example.org:443",
    "DEBUG[0025] api: body {\\u0022server\\u0022:\\u0022198.51.100.9\\u0022}",
};

void AppendLine(std::string& log, std::string_view line) {
  log += line;
  log += '\n';
}

}  // namespace

std::string MixedEngineLog(std::size_t bytes) {
  std::string log;
  for (std::size_t line = 0; log.size() < bytes; ++line) {
    AppendLine(log, kCleanLines[line % kCleanLines.size()]);
    if (line % 2 == 0) {
      AppendLine(log, kRawLines[line / 2 % kRawLines.size()]);
    }
  }
  return log;
}

std::string CleanEngineLog(std::size_t bytes) {
  std::string log;
  for (std::size_t line = 0; log.size() < bytes; ++line) {
    AppendLine(log, kCleanLines[line % kCleanLines.size()]);
  }
  return log;
}

std::string Breadcrumb() {
  std::string line =
      "core log: INFO[0013] outbound/selector[proxy]: selected node 17 of 48 after 81 ms, "
      "next look in 300 s, 3 of the 48 nodes ";
  line.resize(127, '.');
  return line;
}

std::string Configuration(std::size_t bytes) {
  std::string text = R"({
  "log": {"level": "info", "timestamp": true},
  "experimental": {"clash_api": {"external_controller": "127.0.0.1:9090", "secret": ""}},
  "inbounds": [
    {"type": "tun", "tag": "tun-in", "interface_name": "tun0", "mtu": 9000, "auto_route": true},
    {"type": "mixed", "tag": "mixed-in", "listen": "127.0.0.1", "listen_port": 10081}
  ],
  "route": {"auto_detect_interface": true, "final": "proxy"},
  "outbounds": [
    {"type": "selector", "tag": "proxy", "outbounds": ["node-0"], "default": "node-0"})";
  for (int node = 0; text.size() + 8 < bytes; ++node) {
    const std::string number = std::to_string(node);
    text += R"(,
    {
      "type": "vless",
      "tag": "node-)" +
            number + R"(",
      "server": "198.51.100.)" +
            std::to_string(node % 250 + 1) + R"(",
      "server_port": 443,
      "uuid": "0b2f5c1e-6d43-4a7b-9c8d-)" +
            std::to_string(100'000'000'000 + node) + R"(",
      "flow": "xtls-rprx-vision",
      "tls": {
        "enabled": true,
        "server_name": "edge.example.org",
        "utls": {"enabled": true, "fingerprint": "chrome"},
        "alpn": ["h2", "http\/1.1"]
      },
      "note": "Knoten \u00fc )" +
            number + R"( \"fast\""
    })";
  }
  text += "\n  ]\n}\n";
  return text;
}

}  // namespace korvane::bench
