#include "engine_api/clash_patterns.h"

#include <string>

namespace korvane {

namespace {

// What \s and \d mean in a byte-wise ECMAScript expression.
bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Walks along the text, one element of an expression at a time. Each step but a literal may take
// nothing; none of them ever has to give back what it took, since what follows it in the
// expressions can't begin with the same character.
class Walk {
 public:
  Walk(std::string_view text, std::size_t position) : text_(text), position_(position) {}

  std::size_t position() const { return position_; }

  bool Literal(std::string_view literal) {
    const bool fits = text_.substr(position_).starts_with(literal);
    position_ += fits ? literal.size() : 0;
    return fits;
  }

  // \s*:\s*
  bool Colon() {
    Spaces();
    const bool fits = Literal(":");
    Spaces();
    return fits;
  }

  // (\d+), or (-?\d+)
  std::optional<std::string_view> Digits(bool with_sign = false) {
    const std::size_t begin = position_;
    if (with_sign) {
      Literal("-");
    }
    const std::size_t first = position_;
    while (position_ < text_.size() && IsDigit(text_[position_])) {
      ++position_;
    }
    return position_ > first ? std::optional(text_.substr(begin, position_ - begin)) : std::nullopt;
  }

  // ([^"]*)"
  std::optional<std::string_view> ToQuote() {
    const std::size_t begin = position_;
    const std::size_t quote = text_.find('"', begin);
    if (quote == std::string_view::npos) {
      return std::nullopt;
    }
    position_ = quote + 1;
    return text_.substr(begin, quote - begin);
  }

 private:
  void Spaces() {
    while (position_ < text_.size() && IsSpace(text_[position_])) {
      ++position_;
    }
  }

  std::string_view text_;
  std::size_t position_;
};

std::string Quoted(std::string_view key) { return '"' + std::string(key) + '"'; }

// The first place at which the quoted key and a colon stand and `value` reads what follows.
template <typename ReadValue>
std::optional<std::string_view> FirstValue(std::string_view text, std::string_view key,
                                           ReadValue value) {
  const std::string literal = Quoted(key);
  for (std::size_t begin = text.find(literal); begin != std::string_view::npos;
       begin = text.find(literal, begin + 1)) {
    Walk walk(text, begin + literal.size());
    if (!walk.Colon()) {
      continue;
    }
    if (const std::optional<std::string_view> read = value(walk)) {
      return read;
    }
  }
  return std::nullopt;
}

std::optional<DelayMatch> DelayBehind(std::string_view text, std::string_view key,
                                      std::size_t behind_key) {
  Walk walk(text, behind_key);
  const auto digits = walk.Colon() ? walk.Digits() : std::nullopt;
  return digits ? std::optional(DelayMatch{key, *digits, walk.position()}) : std::nullopt;
}

}  // namespace

std::optional<std::string_view> MatchControllerPort(std::string_view text) {
  return FirstValue(text, "external_controller", [](Walk& walk) -> std::optional<std::string_view> {
    const auto digits = walk.Literal("\"127.0.0.1:") ? walk.Digits() : std::nullopt;
    return digits && walk.Literal("\"") ? digits : std::nullopt;
  });
}

std::optional<std::string_view> MatchListenPort(std::string_view text) {
  return FirstValue(text, "listen_port", [](Walk& walk) { return walk.Digits(); });
}

std::optional<std::string_view> MatchInt(std::string_view text, std::string_view key) {
  return FirstValue(text, key, [](Walk& walk) { return walk.Digits(/*with_sign=*/true); });
}

std::optional<std::string_view> MatchString(std::string_view text, std::string_view key) {
  return FirstValue(text, key, [](Walk& walk) -> std::optional<std::string_view> {
    return walk.Literal("\"") ? walk.ToQuote() : std::nullopt;
  });
}

std::optional<DelayMatch> MatchDelay(std::string_view text, std::size_t from) {
  std::size_t open = text.find('"', from);
  while (open != std::string_view::npos) {
    const std::size_t close = text.find('"', open + 1);
    if (close == std::string_view::npos) {
      return std::nullopt;
    }
    const std::string_view key = text.substr(open + 1, close - open - 1);
    if (!key.empty()) {
      if (const auto match = DelayBehind(text, key, close + 1)) {
        return match;
      }
    }
    open = close;  // what closed one key may open the next
  }
  return std::nullopt;
}

std::optional<DelayMatch> MatchNodeDelay(std::string_view text, std::size_t from) {
  constexpr std::string_view kOpening = "\"node_";
  for (std::size_t begin = text.find(kOpening, from); begin != std::string_view::npos;
       begin = text.find(kOpening, begin + 1)) {
    Walk walk(text, begin + kOpening.size());
    if (!walk.Digits()) {
      continue;
    }
    const std::string_view key = text.substr(begin + 1, walk.position() - begin - 1);
    if (!walk.Literal("\"")) {
      continue;
    }
    if (const auto match = DelayBehind(text, key, walk.position())) {
      return match;
    }
  }
  return std::nullopt;
}

}  // namespace korvane
