#include "net/http_message.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

namespace korvane::net {
namespace {

constexpr std::size_t kMostHead = std::size_t{64} * 1024;
constexpr std::size_t kChunk = std::size_t{64} * 1024;

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::string_view Trim(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

template <typename Number>
std::optional<Number> ParseNumber(std::string_view text, int base) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (error != std::errc() || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return number;
}

// False for a line that is no field.
bool AddField(HttpHead& head, std::string_view line) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos || colon == 0) {
    return false;
  }
  head.fields.emplace_back(line.substr(0, colon), Trim(line.substr(colon + 1)));
  return true;
}

bool ParseHead(std::string_view text, HttpHead& head) {
  head = {};
  bool first = true;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find("\r\n"), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 2, text.size()));
    if (std::exchange(first, false)) {
      head.first_line = line;
    } else if (!AddField(head, line)) {
      return false;
    }
  }
  return !head.first_line.empty();
}

}  // namespace

bool EqualIgnoringCase(std::string_view a, std::string_view b) {
  return std::ranges::equal(a, b, {}, Lower, Lower);
}

const std::string* HttpHead::Find(std::string_view name) const {
  for (const auto& [key, value] : fields) {
    if (EqualIgnoringCase(key, name)) {
      return &value;
    }
  }
  return nullptr;
}

bool HttpHead::Says(std::string_view name, std::string_view word) const {
  const std::string* value = Find(name);
  std::string_view left = value == nullptr ? std::string_view() : *value;
  while (!left.empty()) {
    const std::size_t end = std::min(left.find(','), left.size());
    if (EqualIgnoringCase(Trim(left.substr(0, end)), word)) {
      return true;
    }
    left.remove_prefix(std::min(end + 1, left.size()));
  }
  return false;
}

std::string_view HttpHead::Word(std::size_t n) const {
  std::string_view left = first_line;
  for (; n > 0; --n) {
    const std::size_t blank = left.find(' ');
    left = blank == std::string_view::npos ? std::string_view() : left.substr(blank + 1);
  }
  return left.substr(0, left.find(' '));
}

int HttpHead::Status() const {
  if (!first_line.starts_with("HTTP/1.")) {
    return 0;
  }
  return ParseNumber<int>(Word(1), 10).value_or(0);
}

std::string HttpHead::Text() const {
  std::string text = first_line + "\r\n";
  for (const auto& [name, value] : fields) {
    text += name + ": " + value + "\r\n";
  }
  return text + "\r\n";
}

IoStatus HttpReader::ReadHead(HttpHead& head, Deadline deadline) {
  std::size_t searched = 0;
  for (;;) {
    const std::size_t end = buffer_.find("\r\n\r\n", searched);
    if (end != std::string::npos) {
      const bool parsed = ParseHead(std::string_view(buffer_).substr(0, end), head);
      buffer_.erase(0, end + 4);
      return parsed ? IoStatus::kDone : IoStatus::kFailed;
    }
    if (buffer_.size() > kMostHead) {
      return IoStatus::kFailed;
    }
    searched = buffer_.size() < 3 ? 0 : buffer_.size() - 3;
    const IoStatus status = socket_.Receive(buffer_, kChunk, deadline);
    if (status == IoStatus::kEnd && !buffer_.empty()) {
      return IoStatus::kFailed;
    }
    if (status != IoStatus::kDone) {
      return status;
    }
  }
}

IoStatus HttpReader::ReadRequestBody(const HttpHead& head, std::string& body, std::size_t most,
                                     Deadline deadline) {
  if (head.Says("Transfer-Encoding", "chunked")) {
    return ReadChunks(body, most, deadline);
  }
  const std::string* length = head.Find("Content-Length");
  if (length == nullptr) {
    return IoStatus::kDone;
  }
  const auto count = ParseNumber<std::size_t>(*length, 10);
  return count && *count <= most ? ReadExactly(body, *count, deadline) : IoStatus::kFailed;
}

IoStatus HttpReader::ReadAnswerBody(const HttpHead& head, std::string& body, std::size_t most,
                                    Deadline deadline) {
  constexpr int kNoContent = 204;
  if (head.Status() == kNoContent) {
    return IoStatus::kDone;
  }
  if (head.Says("Transfer-Encoding", "chunked") || head.Find("Content-Length") != nullptr) {
    return ReadRequestBody(head, body, most, deadline);
  }
  return ReadToEnd(body, most, deadline);
}

IoStatus HttpReader::ReadChunks(std::string& body, std::size_t most, Deadline deadline) {
  for (std::string line;;) {
    if (const IoStatus status = ReadLine(line, deadline); status != IoStatus::kDone) {
      return status;
    }
    const auto count = ParseNumber<std::size_t>(Trim(line.substr(0, line.find(';'))), 16);
    if (!count || *count > most - body.size()) {
      return IoStatus::kFailed;
    }
    if (const IoStatus status = ReadExactly(body, *count, deadline); status != IoStatus::kDone) {
      return status;
    }
    // The line end of the chunk, or of the trailer, which is read up to its empty line.
    do {
      if (const IoStatus status = ReadLine(line, deadline); status != IoStatus::kDone) {
        return status;
      }
    } while (*count == 0 && !line.empty());
    if (*count == 0) {
      return IoStatus::kDone;
    }
  }
}

IoStatus HttpReader::ReadExactly(std::string& body, std::size_t count, Deadline deadline) {
  while (count > 0) {
    if (buffer_.empty()) {
      const IoStatus status = socket_.Receive(buffer_, kChunk, deadline);
      if (status != IoStatus::kDone) {
        return status == IoStatus::kEnd ? IoStatus::kFailed : status;
      }
    }
    const std::size_t part = std::min(count, buffer_.size());
    body.append(buffer_, 0, part);
    buffer_.erase(0, part);
    count -= part;
  }
  return IoStatus::kDone;
}

IoStatus HttpReader::ReadToEnd(std::string& body, std::size_t most, Deadline deadline) {
  for (body += TakeRest(); body.size() <= most;) {
    const IoStatus status = socket_.Receive(body, kChunk, deadline);
    if (status == IoStatus::kEnd) {
      return IoStatus::kDone;
    }
    if (status != IoStatus::kDone) {
      return status;
    }
  }
  return IoStatus::kFailed;
}

IoStatus HttpReader::ReadLine(std::string& line, Deadline deadline) {
  for (;;) {
    const std::size_t end = buffer_.find("\r\n");
    if (end != std::string::npos) {
      line = buffer_.substr(0, end);
      buffer_.erase(0, end + 2);
      return IoStatus::kDone;
    }
    if (buffer_.size() > kMostHead) {
      return IoStatus::kFailed;
    }
    const IoStatus status = socket_.Receive(buffer_, kChunk, deadline);
    if (status != IoStatus::kDone) {
      return status == IoStatus::kEnd ? IoStatus::kFailed : status;
    }
  }
}

std::string HttpAnswer(int status, const std::vector<std::pair<std::string, std::string>>& fields,
                       std::string_view body) {
  HttpHead head;
  head.first_line = "HTTP/1.1 " + std::to_string(status) + " " + std::string(ReasonOf(status));
  head.fields = fields;
  constexpr int kNoContent = 204;
  if (status != kNoContent) {
    head.fields.emplace_back("Content-Length", std::to_string(body.size()));
  }
  return head.Text().append(body);
}

std::string_view ReasonOf(int status) {
  struct Reason {
    int status;
    std::string_view text;
  };
  static constexpr std::array kReasons{
      Reason{200, "OK"},
      Reason{204, "No Content"},
      Reason{302, "Found"},
      Reason{400, "Bad Request"},
      Reason{401, "Unauthorized"},
      Reason{403, "Forbidden"},
      Reason{404, "Not Found"},
      Reason{405, "Method Not Allowed"},
      Reason{500, "Internal Server Error"},
      Reason{502, "Bad Gateway"},
      Reason{503, "Service Unavailable"},
      Reason{504, "Gateway Timeout"},
  };
  const auto* found = std::ranges::find(kReasons, status, &Reason::status);
  return found == kReasons.end() ? "Status" : found->text;
}

}  // namespace korvane::net
