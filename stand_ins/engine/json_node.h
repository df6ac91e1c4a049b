// json_node.h: a JSON value and where in the configuration it stands, so that an error can say so.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace korvane::stand_in {

// A configuration that can't be used. The text is what the last error will say.
class ConfigurationError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A view of a value in a parsed document, which must outlive it. Whatever has the wrong type, lies
// out of bounds or is missing throws a ConfigurationError that names the place.
class JsonNode {
 public:
  explicit JsonNode(const nlohmann::json& value) : value_(&value) {}

  const std::string& path() const { return path_; }

  // The member of an object; nothing when it is absent or null.
  std::optional<JsonNode> Find(const char* key) const;
  std::vector<JsonNode> Items() const;                            // of an array
  std::vector<std::pair<std::string, JsonNode>> Members() const;  // of an object

  std::string String() const;
  std::int64_t Integer(std::int64_t least, std::int64_t most) const;

  // The member's value, or the fallback when it is absent.
  std::string StringOr(const char* key, std::string fallback) const;
  std::int64_t IntegerOr(const char* key, std::int64_t fallback, std::int64_t least,
                         std::int64_t most) const;

  // Refuses an object with a member of any other name, so that a misspelt wish is not overheard.
  void AllowOnly(std::initializer_list<std::string_view> keys) const;

  [[noreturn]] void Refuse(const std::string& why) const;

 private:
  JsonNode(const nlohmann::json& value, std::string path)
      : value_(&value), path_(std::move(path)) {}

  JsonNode Member(const std::string& key, const nlohmann::json& value) const;
  void Require(bool right_type, const char* type) const;

  const nlohmann::json* value_;
  std::string path_;
};

}  // namespace korvane::stand_in
