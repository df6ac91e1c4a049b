#include "platform/posix/http_answer.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace korvane::platform {

namespace {

constexpr std::size_t kMostLineBytes = std::size_t{64} * 1024;
constexpr std::string_view kBlanks = " \t";

std::string_view Trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) {
    return {};
  }
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool SameWord(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return Lower(x) == Lower(y); });
}

// The number at the front of the text; nothing when there is none or it is too large.
std::optional<std::uint64_t> LeadingNumber(std::string_view text, int base) {
  std::uint64_t number = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return read.ec == std::errc() ? std::optional(number) : std::nullopt;
}

// The status of "HTTP/1.1 200 OK"; 0 when the line is no such line.
int StatusOf(std::string_view line) {
  if (!line.starts_with("HTTP/1.")) {
    return 0;
  }
  const std::size_t blank = line.find(' ');
  const std::string_view rest = blank == std::string_view::npos ? "" : Trimmed(line.substr(blank));
  const std::uint64_t status = LeadingNumber(rest, 10).value_or(0);
  return status >= 100 && status <= 999 ? static_cast<int>(status) : 0;
}

}  // namespace

bool HttpAnswer::Take(std::string_view bytes) {
  while (!bytes.empty() && await_ != Await::kNothing) {
    if (AwaitsLine()) {
      TakeLine(bytes);
    } else {
      TakeBodyBytes(bytes);
    }
  }
  return await_ != Await::kNothing;
}

bool HttpAnswer::AwaitsLine() const { return await_ != Await::kCounted && await_ != Await::kToEnd; }

void HttpAnswer::TakeLine(std::string_view& bytes) {
  const std::size_t end = bytes.find('\n');
  const std::size_t taken = end == std::string_view::npos ? bytes.size() : end + 1;
  line_bytes_ += taken;
  if (line_bytes_ > kMostLineBytes) {
    await_ = Await::kNothing;
    return;
  }
  line_.append(bytes.substr(0, taken));
  bytes.remove_prefix(taken);
  if (end == std::string_view::npos) {
    return;
  }
  line_.pop_back();
  if (line_.ends_with('\r')) {
    line_.pop_back();
  }
  ReadLine();
  line_.clear();
}

void HttpAnswer::TakeBodyBytes(std::string_view& bytes) {
  if (await_ == Await::kToEnd) {
    body_.append(std::exchange(bytes, {}));
    return;
  }
  const auto taken = static_cast<std::size_t>(std::min<std::uint64_t>(counted_, bytes.size()));
  body_.append(bytes.substr(0, taken));
  bytes.remove_prefix(taken);
  counted_ -= taken;
  if (counted_ == 0) {
    await_ = chunked_ ? Await::kChunkEnd : Await::kNothing;
  }
}

void HttpAnswer::ReadLine() {
  if (await_ == Await::kStatusLine) {
    ReadStatusLine();
  } else if (await_ == Await::kField) {
    ReadField();
  } else if (await_ == Await::kChunkSize) {
    ReadChunkSize();
  } else {
    await_ = line_.empty() ? Await::kChunkSize : Await::kNothing;
  }
}

void HttpAnswer::ReadStatusLine() {
  status_ = StatusOf(line_);
  await_ = status_ != 0 ? Await::kField : Await::kNothing;
}

void HttpAnswer::ReadField() {
  if (line_.empty()) {
    EndHead();
    return;
  }
  const std::string_view line = line_;
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos) {
    return;
  }
  const std::string_view name = Trimmed(line.substr(0, colon));
  const std::string_view value = Trimmed(line.substr(colon + 1));
  if (SameWord(name, "transfer-encoding")) {
    chunked_ = chunked_ || SameWord(value, "chunked");
  } else if (SameWord(name, "content-length") && !length_) {
    length_ = LeadingNumber(value, 10);
  }
}

void HttpAnswer::EndHead() {
  if (status_ < 200) {
    await_ = Await::kStatusLine;
    chunked_ = false;
    length_.reset();
    return;
  }
  head_whole_ = true;
  line_bytes_ = 0;
  if (chunked_) {
    await_ = Await::kChunkSize;
  } else if (length_) {
    counted_ = *length_;
    await_ = counted_ == 0 ? Await::kNothing : Await::kCounted;
  } else {
    await_ = Await::kToEnd;
  }
}

void HttpAnswer::ReadChunkSize() {
  // What follows the size, an extension, is nobody's business here; nor is a trailer behind the
  // last chunk.
  counted_ = LeadingNumber(Trimmed(line_), 16).value_or(0);
  await_ = counted_ == 0 ? Await::kNothing : Await::kCounted;
  line_bytes_ = 0;
}

}  // namespace korvane::platform
