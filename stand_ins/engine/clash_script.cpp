#include "engine/clash_script.h"

#include <algorithm>
#include <array>

#include "net/http_message.h"

namespace korvane::stand_in {
namespace {

constexpr std::int64_t kMostPad = std::int64_t{1} << 30;

struct KindName {
  std::string_view name;
  AnswerKind kind;
};
constexpr std::array kKinds{
    KindName{"answer", AnswerKind::kAnswer},          KindName{"chunked", AnswerKind::kChunked},
    KindName{"until_close", AnswerKind::kUntilClose}, KindName{"cut", AnswerKind::kCut},
    KindName{"garbage", AnswerKind::kGarbage},        KindName{"close", AnswerKind::kClose},
};

AnswerKind ReadKind(const JsonNode& node) {
  const std::string name = node.StringOr("kind", "answer");
  const auto* found = std::ranges::find(kKinds, name, &KindName::name);
  if (found == kKinds.end()) {
    node.Refuse("unknown kind \"" + name + "\"");
  }
  return found->kind;
}

std::string Head(const ClashScript& script, const std::pair<std::string, std::string>& framing) {
  net::HttpHead head;
  head.first_line =
      "HTTP/1.1 " + std::to_string(script.status) + " " + std::string(net::ReasonOf(script.status));
  head.fields.emplace_back("Content-Type", "application/json");
  if (!framing.first.empty()) {
    head.fields.push_back(framing);
  }
  return head.Text();
}

std::string Body(const ClashScript& script) {
  return std::string(script.pad_bytes, ' ') + script.body;
}

std::string Hex(std::size_t number) {
  std::string digits;
  for (; number > 0; number /= 16) {
    digits.insert(digits.begin(), "0123456789abcdef"[number % 16]);
  }
  return digits.empty() ? "0" : digits;
}

std::string Chunks(std::string_view body) {
  constexpr std::size_t kChunk = 7000;
  std::string text;
  while (!body.empty()) {
    const std::string_view part = body.substr(0, kChunk);
    body.remove_prefix(part.size());
    text += Hex(part.size()) + "\r\n";
    text.append(part).append("\r\n");
  }
  return text + "0\r\n\r\n";
}

// The whole of what is sent, for the kinds that send one text.
std::string Bytes(const ClashScript& script) {
  const std::string body = Body(script);
  const std::pair<std::string, std::string> length{"Content-Length", std::to_string(body.size())};
  const std::pair<std::string, std::string> chunked{"Transfer-Encoding", "chunked"};
  switch (script.kind) {
    case AnswerKind::kChunked:
      return Head(script, chunked) + Chunks(body);
    case AnswerKind::kUntilClose:
      return Head(script, {}) + body;
    case AnswerKind::kCut:
      return Head(script, length) + body.substr(0, body.size() / 2);
    case AnswerKind::kGarbage:
      return "\x01\x02 this is no answer \xff\xfe\r\n\r\n" + body;
    default:
      return Head(script, length) + body;
  }
}

}  // namespace

ClashScript ClashScript::Read(const JsonNode& node) {
  node.AllowOnly({"path", "kind", "status", "body", "pad_bytes"});
  ClashScript script;
  script.path = node.StringOr("path", "");
  script.kind = ReadKind(node);
  script.status = static_cast<int>(node.IntegerOr("status", 200, 100, 999));
  script.body = node.StringOr("body", "");
  script.pad_bytes = static_cast<std::size_t>(node.IntegerOr("pad_bytes", 0, 0, kMostPad));
  return script;
}

const ClashScript* FindScript(const std::vector<ClashScript>& scripts, std::string_view path) {
  const auto found = std::ranges::find_if(scripts, [path](const ClashScript& script) {
    return script.path.empty() || script.path == path;
  });
  return found == scripts.end() ? nullptr : &*found;
}

void PlayAnswer(const ClashScript& script, net::Socket& socket) {
  if (script.kind != AnswerKind::kClose) {
    socket.Send(Bytes(script), net::Deadline::Never());
  }
}

}  // namespace korvane::stand_in
