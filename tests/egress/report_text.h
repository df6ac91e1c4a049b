// report_text.h: an egress report as JSON, whose objects keep their order.
#pragma once

#include <nlohmann/json.hpp>

#include "egress/egress_report.h"

namespace korvane::test {

inline nlohmann::ordered_json AsJson(const EgressScalar& scalar) {
  return std::visit(
      [](const auto& value) -> nlohmann::ordered_json {
        if constexpr (std::is_same_v<std::decay_t<decltype(value)>, std::monostate>) {
          return nullptr;
        } else {
          return value;
        }
      },
      scalar);
}

inline nlohmann::ordered_json AsJson(const EgressTable& table) {
  auto rows = nlohmann::ordered_json::array();
  for (const EgressRow& row : table) {
    auto object = nlohmann::ordered_json::object();
    for (const EgressCell& cell : row) {
      object[cell.name] = AsJson(cell.value);
    }
    rows.push_back(std::move(object));
  }
  return rows;
}

inline nlohmann::ordered_json AsJson(const EgressReport& report) {
  auto object = nlohmann::ordered_json::object();
  for (const EgressValue& value : report) {
    object[value.name] =
        std::visit([](const auto& content) { return AsJson(content); }, value.value);
  }
  return object;
}

}  // namespace korvane::test
