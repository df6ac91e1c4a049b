#include "diagnostics_evidence/redaction_passes.h"

#include <algorithm>
#include <cstddef>
#include <optional>

namespace korvane::redaction {

namespace {

constexpr std::size_t kNone = std::string_view::npos;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool IsAlnum(char c) { return IsDigit(c) || IsLetter(c); }
bool IsWord(char c) { return IsAlnum(c) || c == '_'; }
bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool IsHex(char c) { return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

int HexValue(char c) {
  if (IsDigit(c)) {
    return c - '0';
  }
  return (c >= 'a' ? c - 'a' : c - 'A') + 10;
}

// \b: one side is a word character and the other isn't.
bool IsBoundary(std::string_view text, std::size_t position) {
  const bool before = position > 0 && IsWord(text[position - 1]);
  const bool behind = position < text.size() && IsWord(text[position]);
  return before != behind;
}

template <typename Predicate>
std::size_t SkipWhile(std::string_view text, std::size_t position, Predicate predicate) {
  while (position < text.size() && predicate(text[position])) {
    ++position;
  }
  return position;
}

// A stretch of the text and what stands in its place.
struct Match {
  std::size_t begin = 0;
  std::size_t end = 0;
  std::string_view replacement;
};

// Replaces what `find` gives; find(from) is the leftmost match that begins at or behind `from`.
template <typename Find>
std::string ReplaceAll(std::string_view text, Find find) {
  std::string result;
  std::size_t copied = 0;
  for (std::optional<Match> match = find(0); match; match = find(match->end)) {
    result.append(text, copied, match->begin - copied);
    result.append(match->replacement);
    copied = match->end;
  }
  result.append(text.substr(copied));
  return result;
}

bool IsC0Control(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return (byte < 0x20 && c != '\t' && c != '\n') || byte == 0x7F;
}

bool IsC1Second(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 0x80 && byte <= 0x9F;
}

constexpr char kC1First = '\xC2';

// The end of the ANSI sequence behind the escape at `position`, or of the bare escape.
std::size_t EscapeEnd(std::string_view text, std::size_t position) {
  const std::size_t bare = position + 1;
  if (bare == text.size()) {
    return bare;
  }
  if (text[bare] == '[') {
    std::size_t end = SkipWhile(text, bare + 1, [](char c) { return c >= '0' && c <= '?'; });
    end = SkipWhile(text, end, [](char c) { return c >= ' ' && c <= '/'; });
    return end < text.size() && text[end] >= '@' && text[end] <= '~' ? end + 1 : bare;
  }
  if (text[bare] == ']') {
    const std::size_t end =
        SkipWhile(text, bare + 1, [](char c) { return c != '\x07' && c != '\x1B'; });
    if (end < text.size() && text[end] == '\x07') {
      return end + 1;
    }
    return end + 1 < text.size() && text[end + 1] == '\\' ? end + 2 : bare;
  }
  return bare;
}

// The end of the control at `position`; kNone when there is none.
std::size_t ControlEnd(std::string_view text, std::size_t position) {
  const char c = text[position];
  if (c == '\x1B') {
    return EscapeEnd(text, position);
  }
  if (IsC0Control(c)) {
    return position + 1;
  }
  if (c == kC1First && position + 1 < text.size() && IsC1Second(text[position + 1])) {
    return position + 2;
  }
  return kNone;
}

// The length of the encoding at `position`, 0 when there is none; its digits are the last two
// bytes.
std::size_t EncodingLength(std::string_view text, std::size_t position) {
  const auto digits_at = [text](std::size_t at) {
    return at + 1 < text.size() && IsHex(text[at]) && IsHex(text[at + 1]);
  };
  if (text[position] == '%' && digits_at(position + 1)) {
    return 3;
  }
  if (text.substr(position, 4) == "\\u00" && digits_at(position + 4)) {
    return 6;
  }
  return 0;
}

// The end of the address that begins at `position`; kNone when none does.
std::size_t Ipv4End(std::string_view text, std::size_t position) {
  const auto digits_end = [text](std::size_t from, std::size_t most) {
    std::size_t end = from;
    while (end < text.size() && end - from < most && IsDigit(text[end])) {
      ++end;
    }
    return end;
  };
  for (int part = 0; part < 4; ++part) {
    const std::size_t end = digits_end(position, 3);
    if (end == position) {
      return kNone;
    }
    if (part == 3) {
      position = end;
      break;
    }
    // Fewer digits can't help: a dot must stand right behind them.
    if (end == text.size() || text[end] != '.') {
      return kNone;
    }
    position = end + 1;
  }
  if (position < text.size() && text[position] == ':') {
    const std::size_t end = digits_end(position + 1, 5);
    return end > position + 1 ? end : position;
  }
  return position;
}

bool IsHostCharacter(char c) { return IsAlnum(c) || c == '.' || c == '-'; }

// The leftmost place in text[from, last_dot) at which well-formed labels begin that reach unbroken
// to the dot at `last_dot`; kNone when the label in front of it is broken.
std::size_t HostBegin(std::string_view text, std::size_t from, std::size_t last_dot) {
  std::size_t begin = kNone;
  std::size_t label_end = last_dot;
  while (label_end > from && IsAlnum(text[label_end - 1])) {
    // The label's earliest character that may begin it, looking left to the next dot.
    std::size_t position = label_end;
    std::size_t label_begin = kNone;
    while (position > from && text[position - 1] != '.') {
      --position;
      if (IsAlnum(text[position]) && IsBoundary(text, position)) {
        label_begin = position;
      }
    }
    if (label_begin != kNone) {
      begin = label_begin;
    }
    // Only a label that fills the space between two dots lets the host go on to the left.
    if (position == from || !IsAlnum(text[position])) {
      break;
    }
    label_end = position - 1;
  }
  return begin;
}

// Where the port behind the colon ends; kNone when there is no port of one to five digits.
std::size_t PortEnd(std::string_view text, std::size_t colon) {
  const std::size_t end = SkipWhile(text, colon + 1, IsDigit);
  const std::size_t digits = end - colon - 1;
  return digits >= 1 && digits <= 5 && IsBoundary(text, end) ? end : kNone;
}

// The host in the run text[begin, colon) and its port behind the colon.
std::optional<Match> HostInRun(std::string_view text, std::size_t begin, std::size_t colon) {
  std::size_t top = colon;
  while (top > begin && IsLetter(text[top - 1])) {
    --top;
  }
  if (colon - top < 2 || top == begin || text[top - 1] != '.') {
    return std::nullopt;
  }
  const std::size_t end = PortEnd(text, colon);
  const std::size_t host = HostBegin(text, begin, top - 1);
  if (end == kNone || host == kNone) {
    return std::nullopt;
  }
  const std::string_view name = text.substr(host, colon - host);
  return Match{host, end, name.ends_with(".go") ? text.substr(host, end - host) : "[host]"};
}

bool IsTokenCharacter(char c) { return IsWord(c) || c == '+' || c == '/' || c == '-'; }

constexpr std::size_t kLongToken = 24;

// The end of a long token that begins at `begin`, in a run of token characters that ends at
// `run_end`: the longest one that ends at a boundary.
std::size_t LongTokenEnd(std::string_view text, std::size_t begin, std::size_t run_end) {
  if (run_end - begin < kLongToken) {
    return kNone;
  }
  std::size_t end = run_end;
  while (end < text.size() && end - run_end < 2 && text[end] == '=') {
    ++end;
  }
  while (end >= begin + kLongToken) {
    if (IsBoundary(text, end)) {
      return end;
    }
    --end;
  }
  return kNone;
}

}  // namespace

std::string RemoveControls(std::string_view text) {
  return ReplaceAll(text, [text](std::size_t from) -> std::optional<Match> {
    for (std::size_t i = from; i < text.size(); ++i) {
      if (const std::size_t end = ControlEnd(text, i); end != kNone) {
        return Match{i, end, {}};
      }
    }
    return std::nullopt;
  });
}

std::string RemoveJoinedControls(std::string_view text) {
  // No C0 control survives one pass, so only the two bytes of a C1 control can have been joined.
  // They nest like brackets; taking each pair as it closes is the end of all repeated passes.
  std::string result;
  result.reserve(text.size());
  for (const char c : text) {
    if (IsC1Second(c) && !result.empty() && result.back() == kC1First) {
      result.pop_back();
    } else {
      result.push_back(c);
    }
  }
  return result;
}

bool HasEncoding(std::string_view text) {
  for (std::size_t i = text.find_first_of("%\\"); i != kNone;
       i = text.find_first_of("%\\", i + 1)) {
    if (EncodingLength(text, i) != 0) {
      return true;
    }
  }
  return false;
}

std::string DecodeOnce(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = EncodingLength(text, i);
    if (length == 0) {
      result.push_back(text[i++]);
      continue;
    }
    i += length;
    result.push_back(static_cast<char>(HexValue(text[i - 2]) * 16 + HexValue(text[i - 1])));
  }
  return result;
}

std::string ReplaceUrls(std::string_view text) {
  return ReplaceAll(text, [text](std::size_t from) -> std::optional<Match> {
    const auto is_scheme = [](char c) { return IsAlnum(c) || c == '+' || c == '.' || c == '-'; };
    const auto is_rest = [](char c) { return !IsSpace(c) && c != '"' && c != '\''; };
    for (std::size_t i = from; i < text.size(); ++i) {
      // One run of scheme characters; its first letter begins the URL.
      const std::size_t run_end = SkipWhile(text, i, is_scheme);
      const auto* letter = std::find_if(text.begin() + i, text.begin() + run_end, IsLetter);
      const auto begin = static_cast<std::size_t>(letter - text.begin());
      if (begin < run_end && text.substr(run_end, 3) == "://") {
        const std::size_t end = SkipWhile(text, run_end + 3, is_rest);
        if (end > run_end + 3) {
          return Match{begin, end, "[url]"};
        }
      }
      i = run_end;
    }
    return std::nullopt;
  });
}

std::string ReplaceAddressTokens(std::string_view text) {
  const auto is_token = [](char c) { return IsHex(c) || c == ':' || c == '.'; };
  const auto is_zone = [](char c) {
    return IsAlnum(c) || c == '_' || c == '.' || c == '~' || c == '-';
  };
  return ReplaceAll(text, [text, is_token, is_zone](std::size_t from) -> std::optional<Match> {
    const auto* first = std::find_if(text.begin() + from, text.end(), is_token);
    if (first == text.end()) {
      return std::nullopt;
    }
    const auto begin = static_cast<std::size_t>(first - text.begin());
    std::size_t end = SkipWhile(text, begin, is_token);
    const std::string_view address = text.substr(begin, end - begin);
    if (end < text.size() && text[end] == '%') {
      const std::size_t zone_end = SkipWhile(text, end + 1, is_zone);
      end = zone_end > end + 1 ? zone_end : end;
    }
    const bool is_address =
        address.find("::") != kNone || std::count(address.begin(), address.end(), ':') >= 3;
    return Match{begin, end, is_address ? "[ip]" : text.substr(begin, end - begin)};
  });
}

std::string ReplaceIpv4(std::string_view text) {
  return ReplaceAll(text, [text](std::size_t from) -> std::optional<Match> {
    for (std::size_t i = from; i < text.size(); ++i) {
      if (IsDigit(text[i])) {
        if (const std::size_t end = Ipv4End(text, i); end != kNone) {
          return Match{i, end, "[ip]"};
        }
      }
    }
    return std::nullopt;
  });
}

std::string ReplaceHosts(std::string_view text) {
  return ReplaceAll(text, [text](std::size_t from) -> std::optional<Match> {
    for (std::size_t i = from; i < text.size(); ++i) {
      const std::size_t run_end = SkipWhile(text, i, IsHostCharacter);
      if (run_end < text.size() && text[run_end] == ':') {
        if (const auto match = HostInRun(text, i, run_end)) {
          return match;
        }
      }
      i = run_end;
    }
    return std::nullopt;
  });
}

std::string ReplaceLongTokens(std::string_view text) {
  return ReplaceAll(text, [text](std::size_t from) -> std::optional<Match> {
    for (std::size_t i = from; i < text.size(); ++i) {
      const std::size_t run_end = SkipWhile(text, i, IsTokenCharacter);
      std::size_t begin = i;
      while (begin < run_end && !IsBoundary(text, begin)) {
        ++begin;
      }
      // The first boundary gives the longest token; where it has no end, no later one has.
      if (const std::size_t end = LongTokenEnd(text, begin, run_end); end != kNone) {
        return Match{begin, end, "[redacted]"};
      }
      i = run_end;
    }
    return std::nullopt;
  });
}

}  // namespace korvane::redaction
