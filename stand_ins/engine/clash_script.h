// clash_script.h: answers of the Clash API that are given as told instead of truthfully.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "engine/json_node.h"
#include "net/socket.h"

namespace korvane::stand_in {

enum class AnswerKind {
  kAnswer,      // status and body, with a length
  kChunked,     // the same in chunks
  kUntilClose,  // the same without a length
  kCut,         // half of the body, then an end
  kGarbage,     // bytes that are no HTTP
  kClose,       // an end without an answer
};

// One told answer; a value. Read from the object that README.md describes.
struct ClashScript {
  static ClashScript Read(const JsonNode& node);

  std::string path;  // decoded, without the query; empty for every path
  AnswerKind kind = AnswerKind::kAnswer;
  int status = 200;
  std::string body;
  std::size_t pad_bytes = 0;  // blanks in front of the body
};

// The first script for this path. Null for none.
const ClashScript* FindScript(const std::vector<ClashScript>& scripts, std::string_view path);

// Gives the told answer; the connection is to be closed afterwards.
void PlayAnswer(const ClashScript& script, net::Socket& socket);

}  // namespace korvane::stand_in
