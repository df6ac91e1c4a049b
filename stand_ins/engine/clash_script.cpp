#include "engine/clash_script.h"

#include <algorithm>
#include <array>

#include "engine/call_script.h"
#include "net/http_message.h"

namespace korvane::stand_in {
namespace {

using net::Deadline;
using net::IoStatus;
using std::chrono::milliseconds;

constexpr std::int64_t kMostMs = 24 * 3600 * 1000;
constexpr std::int64_t kMostPad = std::int64_t{1} << 30;
constexpr milliseconds kFilePoll{5};

struct KindName {
  std::string_view name;
  AnswerKind kind;
};
constexpr std::array kKinds{
    KindName{"engine", AnswerKind::kEngine},
    KindName{"answer", AnswerKind::kAnswer},
    KindName{"chunked", AnswerKind::kChunked},
    KindName{"until_close", AnswerKind::kUntilClose},
    KindName{"cut", AnswerKind::kCut},
    KindName{"reset", AnswerKind::kReset},
    KindName{"cut_chunked", AnswerKind::kCutChunked},
    KindName{"drip", AnswerKind::kDrip},
    KindName{"garbage", AnswerKind::kGarbage},
    KindName{"nothing", AnswerKind::kNothing},
    KindName{"close", AnswerKind::kClose},
    KindName{"endless_headers", AnswerKind::kEndlessHeaders},
};

AnswerKind ReadKind(const JsonNode& node) {
  const std::string name = node.StringOr("kind", "answer");
  const auto* found = std::ranges::find(kKinds, name, &KindName::name);
  if (found == kKinds.end()) {
    node.Refuse("unknown kind \"" + name + "\"");
  }
  return found->kind;
}

milliseconds ReadMs(const JsonNode& node, const char* key, std::int64_t fallback) {
  return milliseconds(node.IntegerOr(key, fallback, 0, kMostMs));
}

std::string Head(const ClashScript& script, const std::pair<std::string, std::string>& framing) {
  net::HttpHead head;
  head.first_line =
      "HTTP/1.1 " + std::to_string(script.status) + " " + std::string(net::ReasonOf(script.status));
  head.fields = script.headers;
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
    case AnswerKind::kReset:
      return Head(script, length) + body.substr(0, body.size() / 2);
    case AnswerKind::kCutChunked:
      return Head(script, chunked) + Hex(body.size() + 1) + "\r\n" + body;
    case AnswerKind::kGarbage:
      return "\x01\x02 this is no answer \xff\xfe\r\n\r\n" + body;
    default:
      return Head(script, length) + body;
  }
}

void Drip(std::string_view bytes, milliseconds interval, net::Socket& socket) {
  for (const char& byte : bytes) {
    if (socket.Send({&byte, 1}, Deadline::Never()) != IoStatus::kDone) {
      return;
    }
    if (socket.stop()->RaisedWithin(interval)) {
      return;
    }
  }
}

void SendEndlessHeaders(const ClashScript& script, net::Socket& socket) {
  const std::string line = "X-Filler: " + std::string(100, 'x') + "\r\n";
  IoStatus status = socket.Send("HTTP/1.1 200 OK\r\n", Deadline::Never());
  while (status == IoStatus::kDone && !socket.stop()->RaisedWithin(script.interval)) {
    status = socket.Send(line, Deadline::Never());
  }
}

// Silent until the client has gone or the time is over; without a time until the service is closed.
void SayNothing(const ClashScript& script, net::Socket& socket) {
  const Deadline end = script.close_after ? Deadline::In(*script.close_after) : Deadline::Never();
  std::string ignored;
  while (socket.Receive(ignored, 1, end) == IoStatus::kDone) {
    ignored.clear();
  }
}

}  // namespace

ClashScript ClashScript::Read(const JsonNode& node) {
  node.AllowOnly({"path", "kind", "status", "body", "pad_bytes", "headers", "touch", "until_file",
                  "wait_ms", "interval_ms", "close_after_ms", "times"});
  ClashScript script;
  script.path = node.StringOr("path", "");
  script.kind = ReadKind(node);
  script.status = static_cast<int>(node.IntegerOr("status", 200, 100, 999));
  script.body = node.StringOr("body", "");
  script.pad_bytes = static_cast<std::size_t>(node.IntegerOr("pad_bytes", 0, 0, kMostPad));
  if (const auto headers = node.Find("headers")) {
    for (const auto& [name, value] : headers->Members()) {
      script.headers.emplace_back(name, value.String());
    }
  }
  script.touch = PathFromUtf8(node.StringOr("touch", ""));
  script.until_file = PathFromUtf8(node.StringOr("until_file", ""));
  script.wait = ReadMs(node, "wait_ms", 0);
  script.interval = ReadMs(node, "interval_ms", 10);
  if (node.Find("close_after_ms")) {
    script.close_after = ReadMs(node, "close_after_ms", 0);
  }
  script.turns = Turns::Read(node);
  return script;
}

const ClashScript* FindScript(const std::vector<ClashScript>& scripts, std::string_view path) {
  const auto found = std::ranges::find_if(scripts, [&](const ClashScript& script) {
    return (script.path.empty() || script.path == path) && script.turns.Take();
  });
  return found == scripts.end() ? nullptr : &*found;
}

bool PlayWaits(const ClashScript& script, const net::StopSignal& stop) {
  Touch(script.touch);
  if (stop.RaisedWithin(script.wait)) {
    return false;
  }
  std::error_code absent;
  while (!script.until_file.empty() && !std::filesystem::exists(script.until_file, absent)) {
    if (stop.RaisedWithin(kFilePoll)) {
      return false;
    }
  }
  return true;
}

void PlayAnswer(const ClashScript& script, net::Socket& socket) {
  switch (script.kind) {
    case AnswerKind::kClose:
      return;
    case AnswerKind::kNothing:
      return SayNothing(script, socket);
    case AnswerKind::kDrip:
      return Drip(Bytes(script), script.interval, socket);
    case AnswerKind::kEndlessHeaders:
      return SendEndlessHeaders(script, socket);
    default:
      socket.Send(Bytes(script), Deadline::Never());
      if (script.kind == AnswerKind::kReset) {
        socket.Reset();
      }
  }
}

}  // namespace korvane::stand_in
