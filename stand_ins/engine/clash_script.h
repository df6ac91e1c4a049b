// clash_script.h: answers of the Clash API that are given as told instead of truthfully.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "engine/json_node.h"
#include "engine/turns.h"
#include "net/socket.h"

namespace korvane::stand_in {

enum class AnswerKind {
  kEngine,          // the true answer, after the waits
  kAnswer,          // status, headers and body, with a length
  kChunked,         // the same in chunks
  kUntilClose,      // the same without a length
  kCut,             // half of the body, then an end
  kReset,           // half of the body, then a reset
  kCutChunked,      // a chunk that is longer than what follows, then an end
  kDrip,            // a byte at a time
  kGarbage,         // bytes that are no HTTP
  kNothing,         // no byte at all
  kClose,           // an end without an answer
  kEndlessHeaders,  // header fields until the client has gone
};

// One told answer; a value. Read from the object that README.md describes.
struct ClashScript {
  static ClashScript Read(const JsonNode& node);

  std::string path;  // decoded, without the query; empty for every path
  AnswerKind kind = AnswerKind::kAnswer;
  int status = 200;
  std::string body;
  std::size_t pad_bytes = 0;  // blanks in front of the body
  std::vector<std::pair<std::string, std::string>> headers;
  std::filesystem::path touch;
  std::filesystem::path until_file;
  std::chrono::milliseconds wait{0};
  std::chrono::milliseconds interval{10};
  std::optional<std::chrono::milliseconds> close_after;
  Turns turns;
};

// The first script for this path whose turns aren't used up; takes one of them. Null for none.
const ClashScript* FindScript(const std::vector<ClashScript>& scripts, std::string_view path);

// Makes the file and waits as told; false when the service is closed meanwhile.
bool PlayWaits(const ClashScript& script, const net::StopSignal& stop);

// Gives the told answer; the connection is to be closed afterwards. Not for kEngine.
void PlayAnswer(const ClashScript& script, net::Socket& socket);

}  // namespace korvane::stand_in
