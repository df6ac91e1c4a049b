#include "engine/json_node.h"

#include <algorithm>

namespace korvane::stand_in {

void JsonNode::Refuse(const std::string& why) const {
  throw ConfigurationError("decode config" + (path_.empty() ? "" : " at " + path_) + ": " + why);
}

void JsonNode::Require(bool right_type, const char* type) const {
  if (!right_type) {
    Refuse(std::string("expected ") + type + ", got " + value_->type_name());
  }
}

JsonNode JsonNode::Member(const std::string& key, const nlohmann::json& value) const {
  return {value, path_.empty() ? key : path_ + "." + key};
}

std::optional<JsonNode> JsonNode::Find(const char* key) const {
  Require(value_->is_object(), "an object");
  const auto found = value_->find(key);
  if (found == value_->end() || found->is_null()) {
    return std::nullopt;
  }
  return Member(key, *found);
}

std::vector<JsonNode> JsonNode::Items() const {
  Require(value_->is_array(), "an array");
  std::vector<JsonNode> items;
  for (const nlohmann::json& item : *value_) {
    items.push_back({item, path_ + "[" + std::to_string(items.size()) + "]"});
  }
  return items;
}

std::vector<std::pair<std::string, JsonNode>> JsonNode::Members() const {
  Require(value_->is_object(), "an object");
  std::vector<std::pair<std::string, JsonNode>> members;
  for (const auto& [key, value] : value_->items()) {
    members.emplace_back(key, Member(key, value));
  }
  return members;
}

std::string JsonNode::String() const {
  Require(value_->is_string(), "a string");
  return value_->get<std::string>();
}

std::int64_t JsonNode::Integer(std::int64_t least, std::int64_t most) const {
  Require(value_->is_number_integer(), "an integer");
  const bool fits = !value_->is_number_unsigned() ||
                    value_->get<std::uint64_t>() <= static_cast<std::uint64_t>(INT64_MAX);
  const std::int64_t number = fits ? value_->get<std::int64_t>() : INT64_MAX;
  if (number < least || number > most) {
    Refuse("expected " + std::to_string(least) + " to " + std::to_string(most));
  }
  return number;
}

std::string JsonNode::StringOr(const char* key, std::string fallback) const {
  const auto member = Find(key);
  return member ? member->String() : std::move(fallback);
}

std::int64_t JsonNode::IntegerOr(const char* key, std::int64_t fallback, std::int64_t least,
                                 std::int64_t most) const {
  const auto member = Find(key);
  return member ? member->Integer(least, most) : fallback;
}

void JsonNode::AllowOnly(std::initializer_list<std::string_view> keys) const {
  Require(value_->is_object(), "an object");
  for (const auto& [key, value] : value_->items()) {
    if (std::ranges::find(keys, std::string_view(key)) == keys.end()) {
      Refuse("unknown field \"" + key + "\"");
    }
  }
}

}  // namespace korvane::stand_in
