// sessions.h: what scenarios about the tunnel's sessions share: configurations that the engine
// stand-in takes, and the evidence that a session leaves.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/host_driver/host_process.h"

namespace korvane::test {

// A configuration in proxy mode; `stand_in` tells the engine stand-in how to behave.
inline std::string ConfigWith(const Json& stand_in) {
  return Json{{"log", Json::object()},
              {"inbounds", {{{"type", "mixed"}, {"tag", "mixed-in"}, {"listen", "127.0.0.1"}}}},
              {"outbounds", {{{"type", "direct"}, {"tag", "direct"}}}},
              {"experimental", {{"stand_in", stand_in}}}}
      .dump();
}

// The arguments of `loadVPNPreference` for it.
inline Json Preference(const std::string& config) {
  return {{"config", config}, {"autoConfigureProxy", false}};
}

inline void SwitchOn(HostProcess& host) {
  EXPECT_EQ(host.Call("setWindowsDiagnosticsEnabled", {{"enabled", true}})["success"], true);
}

// The incidents that a new process finds, oldest first.
inline std::vector<Json> IncidentsImportedBy(HostProcess& host) {
  const Json imported = host.Call("importPendingIncidents");
  EXPECT_TRUE(imported.contains("success")) << imported;
  std::vector<Json> incidents = host.Call("getPendingIncidents")["success"]["incidents"];
  return {incidents.rbegin(), incidents.rend()};
}

// "reason/marker", by which an incident tells how its session ended.
inline std::string EndOf(const Json& incident) {
  return incident["reason"].get<std::string>() + "/" + incident["markerState"].get<std::string>();
}

// The ends of the incidents that a new process finds and that have a session.
inline std::vector<std::string> ImportedBy(HostProcess& host) {
  std::vector<std::string> ends;
  for (const Json& incident : IncidentsImportedBy(host)) {
    if (incident["sessionId"] != "unknown") {
      ends.push_back(EndOf(incident));
    }
  }
  return ends;
}

}  // namespace korvane::test
