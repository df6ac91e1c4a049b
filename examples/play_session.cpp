// play_session SESSION CONFIG: plays a session file with the host and prints a transcript.
//
// The host is a process of a fresh user. A session file holds one JSON object per line: a line of
// the host's console as it is, or one of these:
//
//   {"say":TEXT}                a heading
//   {"call":NAME,"args":VALUE}  a method call, whose reply is waited for
//   {"expect":{...}}            waits for a line of the host that has these keys
//   {"proxy":true}              reads the system proxy from outside of the host
//   {"fetch":PATH}              fetches a page of a local web server through that proxy
//   {"delays":true}             shows the delays, and what the automatic selector has picked
//   {"screenshot":true}         a picture of the display, where there is one
//   {"kill":true}               ends the host at once, as a power cut does
//   {"start":true}              starts it again, for the same user; {"restart":true} closes it
//   first
//   {"incidents":[{...},...]}   lists the archived incidents; each of these must be among them
//   {"acknowledge":{...}}       acknowledges the first one of the last list that has these values
//   {"report":{...}}            the runtime report as a table; it must have these values
//   {"timeline":true}           what the startup log says of the user's last start
//
// "@config" in an argument is the configuration's text, "@config-with-another-node" the same with
// another default of its first selector. Exit code 0 when everything came as expected.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>
#include <string>

#include "net/http_get.h"
#include "support/host_driver/host_process.h"
#include "support/host_driver/host_target.h"
#include "web/web_server.h"

namespace {

using korvane::test::HostProcess;
using korvane::test::HostUser;
using korvane::test::Json;
// Keys keep their order, since the host reads the text and not the document.
using OrderedJson = nlohmann::ordered_json;

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw std::runtime_error("can't read " + path);
  }
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// The configuration with the next choice of its first selector as the default.
std::string WithAnotherNode(const std::string& config) {
  OrderedJson document = OrderedJson::parse(config);
  for (auto& outbound : document["outbounds"]) {
    if (outbound.value("type", "") == "selector" && outbound["outbounds"].size() > 1) {
      const bool first = outbound.value("default", outbound["outbounds"][0]) ==
                         outbound["outbounds"][0].get<std::string>();
      outbound["default"] = outbound["outbounds"][first ? 1 : 0];
      break;
    }
  }
  return document.dump();
}

std::string Shortened(std::string text) {
  constexpr std::size_t kMost = 100;
  return text.size() <= kMost ? text : text.substr(0, kMost) + "...";
}

// One line of the host, as a person reads it.
std::string Readable(const Json& line) {
  if (line.contains("reply")) {
    const std::string answer = line.contains("error") ? line["error"]["code"].get<std::string>() +
                                                            ": " + line["error"]["message"].dump()
                               : line.contains("success") ? line["success"].dump()
                                                          : "not implemented";
    return "answer " + line["reply"].dump() + " on the " + line.value("thread", "window") +
           " thread: " + Shortened(answer);
  }
  if (line.contains("window")) {
    return "the window is " + line["window"].get<std::string>();
  }
  if (line.contains("event")) {
    return "event: " + line["event"].dump();
  }
  if (line.contains("method")) {
    return "call to the interface: " + line["method"].get<std::string>() + " " +
           Shortened(line["args"].dump());
  }
  Json rest = line;
  rest.erase("ms");
  return Shortened(rest.dump());
}

// Without the console's mark on 64-bit integers.
Json Unmarked(const Json& value) {
  if (value.is_object() && value.contains("$int64")) {
    return value["$int64"];
  }
  Json result = value;
  if (value.is_structured()) {
    for (Json& element : result) {
      element = Unmarked(element);
    }
  }
  return result;
}

std::string CommandOutput(const std::string& command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  std::string output;
  std::array<char, 4096> buffer{};
  while (pipe && std::fgets(buffer.data(), buffer.size(), pipe.get()) != nullptr) {
    output += buffer.data();
  }
  return output;
}

class Player {
 public:
  explicit Player(std::string config)
      : config_(std::move(config)), host_(std::make_unique<HostProcess>(user_)) {}

  bool Play(const Json& line) {
    if (line.contains("say")) {
      std::printf("\n%s\n", line["say"].get<std::string>().c_str());
    } else if (line.contains("call")) {
      Call(line);
    } else if (line.contains("expect")) {
      const bool came = !host_->Await(line["expect"]).is_null();
      PrintNews();
      return came;
    } else if (line.contains("proxy")) {
      const auto proxy = SystemProxy();
      Note("system proxy: " + proxy.value_or("direct"));
    } else if (line.contains("fetch")) {
      return Fetch(line["fetch"]);
    } else if (line.contains("delays")) {
      return ShowDelays();
    } else if (line.contains("screenshot")) {
      Screenshot();
    } else if (line.contains("kill")) {
      host_->Kill();
      host_->WaitForExit();
      Note("the host is gone");
    } else if (line.contains("start")) {
      Start();
    } else if (line.contains("restart")) {
      const bool left = Close();
      Start();
      return left;
    } else if (line.contains("incidents")) {
      return ListIncidents(line["incidents"]);
    } else if (line.contains("acknowledge")) {
      return Acknowledge(line["acknowledge"]);
    } else if (line.contains("report")) {
      return Report(line["report"]);
    } else if (line.contains("timeline")) {
      Timeline();
    } else {
      host_->Send(line);
    }
    return true;
  }

  bool Finish() { return Close() && !testing::Test::HasFailure(); }

 private:
  void Start() {
    host_ = std::make_unique<HostProcess>(user_);
    printed_ = 0;
  }

  bool Close() {
    const int code = host_->Finish();
    Note("the host left with exit code " + std::to_string(code));
    return code == 0;
  }

  bool ShowDelays() {
    const Json path = host_->Call("performUrlTest", Json::object());
    const Json info = host_->Call("getAutoSelectorInfo");
    PrintNews();
    if (!path.contains("success") || !info.contains("success")) {
      return false;
    }
    const Json& picked = info["success"];
    Note("the path in use answers in " + path["success"].dump() + " ms");
    Note("in use: " + picked["selectedTag"].get<std::string>() + ", " +
         picked["selectedLatency"].dump() + " ms");
    const Json group = Json::parse(picked["allLatencies"].get<std::string>());
    for (const auto& [node, delay] : group.items()) {
      Note("  of the automatic group: " + node + ", " + delay.dump() + " ms");
    }
    return picked["selectedLatency"] > 0;
  }

  bool ListIncidents(const Json& expected) {
    const Json answer = host_->Call("getPendingIncidents");
    PrintNews();
    if (!answer.contains("success")) {
      return false;
    }
    incidents_ = answer["success"]["incidents"];
    for (const Json& incident : incidents_) {
      Note("incident " + incident["id"].get<std::string>() + ": " +
           incident["reason"].get<std::string>() + ", marker " +
           incident["markerState"].get<std::string>() + ", " +
           (incident["acknowledged"] == true ? "seen" : "not seen yet"));
    }
    return std::ranges::all_of(
        expected, [this](const Json& pattern) { return !FindIncident(pattern).is_null(); });
  }

  Json FindIncident(const Json& pattern) const {
    for (const Json& incident : incidents_) {
      if (korvane::test::Matches(incident, pattern)) {
        return incident;
      }
    }
    return nullptr;
  }

  bool Acknowledge(const Json& pattern) {
    const Json incident = FindIncident(pattern);
    if (incident.is_null()) {
      return false;
    }
    const Json answer =
        host_->Call("acknowledgeIncident",
                    {{"incidentId", incident["id"]}, {"reimportCount", incident["reimportCount"]}});
    PrintNews();
    return answer.contains("success") && answer["success"] == true;
  }

  bool Report(const Json& expected) {
    const Json reply = host_->Call("getWindowsRuntimeDiagnostics", {{"selectorTag", "proxy"}});
    const Json answer = reply.contains("success") ? reply["success"] : Json();
    PrintNews();
    for (const auto& [name, value] : answer.items()) {
      const bool table = value.is_array() && !value.empty();
      PrintRow(name, table ? "" : Shortened(Unmarked(value).dump()));
      for (const Json& row : table ? value : Json::array()) {
        PrintRow("", Unmarked(row).dump());
      }
    }
    return korvane::test::Matches(answer, expected);
  }

  static void PrintRow(const std::string& name, const std::string& value) {
    std::printf("           | %-27s | %s\n", name.c_str(), value.c_str());
  }

  void Timeline() {
    const std::string text =
        CommandOutput("scripts/lib/startup_timeline --last 1 '" +
                      (user_.startup_log_folder() / "startup.log").string() + "'");
    std::printf("%s", text.c_str());
    std::fflush(stdout);
  }

  void Call(const Json& line) {
    Json arguments = line.value("args", Json());
    Fill(arguments);
    const std::string what = line["call"].get<std::string>() +
                             (arguments.is_null() ? "" : " " + Shortened(arguments.dump()));
    std::printf("           > %s\n", what.c_str());
    host_->Call(line["call"], arguments);
    PrintNews();
  }

  void Fill(Json& value) const {
    if (value == "@config") {
      value = config_;
    } else if (value == "@config-with-another-node") {
      value = WithAnotherNode(config_);
    } else if (value.is_structured()) {
      for (auto& element : value) {
        Fill(element);
      }
    }
  }

  bool Fetch(const std::string& path) {
    const auto proxy = SystemProxy();
    if (!proxy) {
      Note("no system proxy to fetch through");
      return false;
    }
    std::string error;
    const auto url = korvane::net::ParseUrl(web_.Url(path));
    const auto got =
        korvane::net::HttpGet(*url, korvane::net::ParseAuthority(*proxy, 0), std::size_t{1} << 30,
                              korvane::net::Deadline::In(std::chrono::seconds(30)), error);
    Note("fetched " + web_.Url(path) + " through " + *proxy + ": " +
         (got ? "status " + std::to_string(got->head.Status()) + ", " +
                    std::to_string(got->body.size()) + " bytes"
              : error));
    return got && got->head.Status() == 200;
  }

  // "host:port" as another process of the user reads it.
  std::optional<std::string> SystemProxy() const {
    std::string text;
    std::string key;
    if (korvane::test::DrivesWindows()) {
      std::string command;
      for (const auto& [name, value] : user_.environment()) {
        command += name + "='" + value + "' ";
      }
      text = CommandOutput(command +
                           "WINEDEBUG=-all wine reg query 'HKCU\\Software\\Microsoft\\Windows\\"
                           "CurrentVersion\\Internet Settings' 2>/dev/null");
      if (text.find("ProxyEnable    REG_DWORD    0x1") == std::string::npos) {
        return std::nullopt;
      }
      key = "ProxyServer    REG_SZ    ";
    } else {
      for (const auto& [name, value] : user_.environment()) {
        if (name == "XDG_CONFIG_HOME") {
          std::ifstream file(value + "/Korvane/proxy_settings");
          text.assign(std::istreambuf_iterator<char>(file), {});
        }
      }
      key = "server=";
    }
    const std::size_t begin = text.find(key);
    if (begin == std::string::npos) {
      return std::nullopt;
    }
    const std::string server = text.substr(begin + key.size());
    const std::string trimmed = server.substr(0, server.find_first_of("\r\n"));
    return trimmed.empty() ? std::nullopt : std::optional(trimmed);
  }

  void Screenshot() {
    const char* file = std::getenv("KORVANE_SCREENSHOT");  // NOLINT(concurrency-mt-unsafe)
    if (file != nullptr) {
      CommandOutput(std::string("import -window root '") + file + "'");
      Note(std::string("a picture of the display is in ") + file);
    }
  }

  void Note(const std::string& text) {
    PrintNews();
    std::printf("           %s\n", text.c_str());
    std::fflush(stdout);
  }

  // What the host has said since the last time.
  void PrintNews() {
    const auto lines = host_->lines();
    for (; printed_ < lines.size(); ++printed_) {
      const Json& line = lines[printed_];
      if (line.is_object() && !line.contains("plugin") && !line.contains("plugin_registered")) {
        std::printf("%7d ms %s\n", line.value("ms", 0), Readable(line).c_str());
      }
    }
    std::fflush(stdout);
  }

  const std::string config_;
  // What the example configuration expects on loopback: the page of its delay tests, and the two
  // nodes that its engine keeps a connection to.
  korvane::stand_in::WebServer web_{18080};
  korvane::stand_in::WebServer first_node_{18443};
  korvane::stand_in::WebServer second_node_{18444};
  HostUser user_;
  std::unique_ptr<HostProcess> host_;
  std::size_t printed_ = 0;
  Json incidents_;
};

int Run(const std::string& session, const std::string& config) {
  Player player(ReadFile(config));
  std::istringstream lines(ReadFile(session));
  bool good = true;
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty()) {
      good = player.Play(Json::parse(line)) && good;
    }
  }
  good = player.Finish() && good;
  std::printf("\n%s\n", good ? "The session went as it should." : "The session did NOT go well.");
  return good ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: play_session SESSION CONFIG\n";
    return 2;
  }
  try {
    return Run(argv[1], argv[2]);
  } catch (const std::exception& failure) {
    std::cerr << "play_session: " << failure.what() << '\n';
    return 1;
  }
}
