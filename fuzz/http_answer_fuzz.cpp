// Arbitrary bytes as what answers on the engine's control port: the reader comes to the same result
// however the bytes are cut, and every question that is put to the body comes to an end.
//
// The first byte says in pieces of how many bytes the rest comes.
#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "engine_api/clash_api.h"
#include "engine_api/local_http.h"
#include "platform/posix/http_answer.h"
#include "require.h"

namespace {

using korvane::fuzz::Require;
using korvane::platform::HttpAnswer;

struct Read {
  int status;
  std::string body;
};

Read InPieces(std::string_view bytes, std::size_t piece) {
  HttpAnswer answer;
  while (!bytes.empty() && answer.Take(bytes.substr(0, piece))) {
    bytes.remove_prefix(std::min(piece, bytes.size()));
  }
  return {answer.status(), answer.TakeBody()};
}

// Digits beyond an int are the one thing that a reader may throw for.
template <typename Question>
void Ask(const Question& question) {
  try {
    question();
  } catch (const std::out_of_range&) {
  } catch (const std::invalid_argument&) {
  }
}

void AskAll(const std::string& text) {
  using namespace korvane;
  Ask([&] { ExtractClashApiPort(text); });
  Ask([&] { FindInboundListenPort(text, "mixed-in"); });
  Ask([&] { JsonExtractInt(text, "delay"); });
  Ask([&] { JsonExtractString(text, "now"); });
  Ask([&] {
    const LatencyPick pick = PickLowestLatency(text);
    Require((pick.latency > 0) == !pick.tag.empty());
  });
  Ask([&] {
    const LatencyPick pick = PickLowestNodeLatency(text);
    Require((pick.latency > 0) == pick.tag.starts_with("node_"));
  });
  Ask([&] {
    const auto url = ParseLoopbackUrl(text);
    Require(!url || url->port != 0);
  });
  Require(UrlEncodeTag(text).size() >= text.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  const Read whole = InPieces(bytes, size);
  const Read cut = InPieces(bytes, std::size_t{data[0]} + 1);
  Require(whole.status == cut.status && whole.body == cut.body);
  Require(whole.body.size() <= bytes.size());
  AskAll(std::string(bytes));
  AskAll(whole.body);
  return 0;
}
