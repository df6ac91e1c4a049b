#include "diagnostics_evidence/redaction_passes.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

namespace korvane::redaction {

namespace {

constexpr std::size_t kNone = std::string_view::npos;

// What a byte is; the sets of the expressions are made of these.
using Kinds = std::uint16_t;
constexpr Kinds kDigit = 1 << 0;
constexpr Kinds kLetter = 1 << 1;
constexpr Kinds kUnderscore = 1 << 2;
constexpr Kinds kHexLetter = 1 << 3;
constexpr Kinds kDash = 1 << 4;
constexpr Kinds kDot = 1 << 5;
constexpr Kinds kPlus = 1 << 6;
constexpr Kinds kSlash = 1 << 7;
constexpr Kinds kColon = 1 << 8;
constexpr Kinds kTilde = 1 << 9;
constexpr Kinds kPercent = 1 << 10;
constexpr Kinds kUrlEnd = 1 << 11;  // blanks and quotes

constexpr Kinds kHex = kDigit | kHexLetter;
constexpr Kinds kAlnum = kDigit | kLetter;
constexpr Kinds kWord = kAlnum | kUnderscore;
constexpr Kinds kScheme = kAlnum | kPlus | kDot | kDash;
constexpr Kinds kAddress = kHex | kColon | kDot;
constexpr Kinds kZone = kWord | kDot | kTilde | kDash;
constexpr Kinds kHost = kAlnum | kDot | kDash;
constexpr Kinds kToken = kWord | kPlus | kSlash | kDash;

constexpr std::array<Kinds, 256> MakeKinds() {
  std::array<Kinds, 256> kinds{};
  const auto mark = [&kinds](std::string_view bytes, Kinds kind) {
    for (const char byte : bytes) {
      kinds[static_cast<unsigned char>(byte)] |= kind;
    }
  };
  mark("0123456789", kDigit);
  mark("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ", kLetter);
  mark("abcdefABCDEF", kHexLetter);
  mark("_", kUnderscore);
  mark("-", kDash);
  mark(".", kDot);
  mark("+", kPlus);
  mark("/", kSlash);
  mark(":", kColon);
  mark("~", kTilde);
  mark("%", kPercent);
  mark(" \t\n\v\f\r\"'", kUrlEnd);
  return kinds;
}

constexpr std::array<Kinds, 256> kKindsOf = MakeKinds();

bool Is(char c, Kinds kinds) { return (kKindsOf[static_cast<unsigned char>(c)] & kinds) != 0; }

int HexValue(char c) {
  if (Is(c, kDigit)) {
    return c - '0';
  }
  return (c >= 'a' ? c - 'a' : c - 'A') + 10;
}

// \b: one side is a word character and the other isn't.
bool IsBoundary(std::string_view text, std::size_t position) {
  const bool before = position > 0 && Is(text[position - 1], kWord);
  const bool behind = position < text.size() && Is(text[position], kWord);
  return before != behind;
}

template <typename Predicate>
std::size_t SkipWhile(std::string_view text, std::size_t position, Predicate predicate) {
  while (position < text.size() && predicate(text[position])) {
    ++position;
  }
  return position;
}

std::size_t SkipAll(std::string_view text, std::size_t position, Kinds kinds) {
  return SkipWhile(text, position, [kinds](char c) { return Is(c, kinds); });
}

// Where the bytes of these kinds begin that end at `position`; not in front of `from`.
std::size_t SkipAllBack(std::string_view text, std::size_t from, std::size_t position,
                        Kinds kinds) {
  while (position > from && Is(text[position - 1], kinds)) {
    --position;
  }
  return position;
}

// The first byte at or behind `position` that is wanted, or the end. Asks for blocks of bytes
// without a branch in between, which the compiler makes a few wide instructions of.
template <typename Predicate>
std::size_t FindByte(std::string_view text, std::size_t position, Predicate wanted) {
  constexpr std::size_t kBlock = 32;
  while (text.size() - position >= kBlock) {
    const char* const block = text.data() + position;
    unsigned found = 0;
    for (std::size_t i = 0; i < kBlock; ++i) {
      found |= static_cast<unsigned>(wanted(block[i]));
    }
    if (found != 0) {
      break;
    }
    position += kBlock;
  }
  return SkipWhile(text, position, [wanted](char c) { return !wanted(c); });
}

// A stretch of the text and what stands in its place.
struct Match {
  std::size_t begin = 0;
  std::size_t end = 0;
  std::string_view replacement;
};

// Replaces what `find` gives; find(text, from) is the leftmost match that begins at or behind
// `from`. A text without one is handed back as it is.
template <typename Find>
std::string ReplaceAll(std::string&& text, Find find) {
  std::optional<Match> match = find(text, 0);
  if (!match) {
    return std::move(text);
  }
  std::string result;
  result.reserve(text.size());
  std::size_t copied = 0;
  for (; match; match = find(text, match->end)) {
    result.append(text, copied, match->begin - copied);
    result.append(match->replacement);
    copied = match->end;
  }
  result.append(text, copied);
  return result;
}

bool IsC1Second(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 0x80 && byte <= 0x9F;
}

constexpr char kC1First = '\xC2';

// Whether a control may begin with the byte. No branches: it is asked of every byte.
bool MayBeginControl(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return ((byte < 0x20) & (c != '\t') & (c != '\n')) | (byte == 0x7F) | (c == kC1First);
}

bool MayBeginEncoding(char c) { return (c == '%') | (c == '\\'); }

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

// The end of the control at `position`, where one may begin; kNone when none does.
std::size_t ControlEnd(std::string_view text, std::size_t position) {
  const char c = text[position];
  if (c == '\x1B') {
    return EscapeEnd(text, position);
  }
  if (c != kC1First) {
    return position + 1;
  }
  return position + 1 < text.size() && IsC1Second(text[position + 1]) ? position + 2 : kNone;
}

// The length of the encoding at `position`, 0 when there is none; its digits are the last two
// bytes.
std::size_t EncodingLength(std::string_view text, std::size_t position) {
  const auto digits_at = [text](std::size_t at) {
    return at + 1 < text.size() && Is(text[at], kHex) && Is(text[at + 1], kHex);
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
    while (end < text.size() && end - from < most && Is(text[end], kDigit)) {
      ++end;
    }
    return end;
  };
  for (int part = 0;; ++part) {
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

// The leftmost place in text[from, last_dot) at which well-formed labels begin that reach unbroken
// to the dot at `last_dot`; kNone when the label in front of it is broken.
std::size_t HostBegin(std::string_view text, std::size_t from, std::size_t last_dot) {
  std::size_t begin = kNone;
  std::size_t label_end = last_dot;
  while (label_end > from && Is(text[label_end - 1], kAlnum)) {
    // The label's earliest character that may begin it, looking left to the next dot.
    std::size_t position = label_end;
    std::size_t label_begin = kNone;
    while (position > from && text[position - 1] != '.') {
      --position;
      if (Is(text[position], kAlnum) && IsBoundary(text, position)) {
        label_begin = position;
      }
    }
    if (label_begin != kNone) {
      begin = label_begin;
    }
    // Only a label that fills the space between two dots lets the host go on to the left.
    if (position == from || !Is(text[position], kAlnum)) {
      break;
    }
    label_end = position - 1;
  }
  return begin;
}

// Where the port behind the colon and its first digit ends; kNone when it has more than five.
std::size_t PortEnd(std::string_view text, std::size_t colon) {
  const std::size_t end = SkipAll(text, colon + 1, kDigit);
  return end - colon - 1 <= 5 && IsBoundary(text, end) ? end : kNone;
}

// The host in the run text[begin, colon) and its port behind the colon.
std::optional<Match> HostInRun(std::string_view text, std::size_t begin, std::size_t colon) {
  const std::size_t top = SkipAllBack(text, begin, colon, kLetter);
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

// The begin of the first kLongToken bytes in a row that a token may have; kNone when there are
// none. Each such window is looked at from its end: the byte that breaks it tells how far to go on.
std::size_t FindTokenWindow(std::string_view text, std::size_t from) {
  std::size_t begin = from;
  while (text.size() - begin >= kLongToken) {
    const std::size_t unbroken = SkipAllBack(text, begin, begin + kLongToken, kToken);
    if (unbroken == begin) {
      return begin;
    }
    begin = unbroken;
  }
  return kNone;
}

// Whether the token of an address expression is one, and not a time of day or a plain number.
bool IsAddress(std::string_view token) {
  return token.find("::") != kNone || std::count(token.begin(), token.end(), ':') >= 3;
}

// A run of bytes that tokens and their zones may have, and the first address in it.
struct AddressRun {
  std::optional<Match> address;
  std::size_t end = 0;  // of the address, or of the run when there is none
};

AddressRun ReadAddressRun(std::string_view text, std::size_t begin) {
  std::size_t position = begin;
  while (position < text.size() && Is(text[position], kAddress | kZone | kPercent)) {
    std::size_t end = SkipAll(text, position, kAddress);
    if (end == position) {
      ++position;
      continue;
    }
    const std::string_view token = text.substr(position, end - position);
    if (end < text.size() && text[end] == '%') {
      const std::size_t zone_end = SkipAll(text, end + 1, kZone);
      end = zone_end > end + 1 ? zone_end : end;
    }
    if (IsAddress(token)) {
      return {.address = Match{position, end, "[ip]"}, .end = end};
    }
    position = end;
  }
  return {.address = std::nullopt, .end = position};
}

// The seven searches, each for the leftmost match that begins at or behind `from`. A match is found
// by the byte that it can't be without, so that most bytes are only looked at by a search for one.

std::optional<Match> FindControl(std::string_view text, std::size_t from) {
  for (std::size_t i = FindByte(text, from, MayBeginControl); i < text.size();
       i = FindByte(text, i + 1, MayBeginControl)) {
    if (const std::size_t end = ControlEnd(text, i); end != kNone) {
      return Match{i, end, {}};
    }
  }
  return std::nullopt;
}

// The first encoding at or behind `from`, or the end.
std::size_t FindEncoding(std::string_view text, std::size_t from) {
  std::size_t i = FindByte(text, from, MayBeginEncoding);
  while (i < text.size() && EncodingLength(text, i) == 0) {
    i = FindByte(text, i + 1, MayBeginEncoding);
  }
  return i;
}

std::optional<Match> FindUrl(std::string_view text, std::size_t from) {
  for (std::size_t colon = text.find("://", from); colon != kNone;
       colon = text.find("://", colon + 1)) {
    // The first letter of the bytes that a scheme may have begins the URL.
    std::size_t begin = SkipAllBack(text, from, colon, kScheme);
    begin = SkipWhile(text.substr(0, colon), begin, [](char c) { return !Is(c, kLetter); });
    const std::size_t rest = colon + 3;
    const std::size_t end =
        begin == colon ? rest : SkipWhile(text, rest, [](char c) { return !Is(c, kUrlEnd); });
    if (end > rest) {
      return Match{begin, end, "[url]"};
    }
  }
  return std::nullopt;
}

std::optional<Match> FindAddress(std::string_view text, std::size_t from) {
  std::size_t colon = text.find(':', from);
  while (colon != kNone) {
    // The first colon of a token that ends right behind it, without a zone, is its only one.
    if (colon + 1 < text.size() && Is(text[colon + 1], kAddress | kPercent)) {
      const std::size_t begin = SkipAllBack(text, from, colon, kAddress | kZone | kPercent);
      const AddressRun run = ReadAddressRun(text, begin);
      if (run.address) {
        return run.address;
      }
      from = run.end;
    } else {
      from = colon + 1;
    }
    colon = text.find(':', from);
  }
  return std::nullopt;
}

std::optional<Match> FindIpv4(std::string_view text, std::size_t from) {
  for (std::size_t dot = text.find('.', from); dot != kNone; dot = text.find('.', dot + 1)) {
    // Where the most digits don't begin an address, fewer don't either: all have this dot behind.
    const std::size_t earliest = dot - from > 3 ? dot - 3 : from;
    const std::size_t begin = SkipAllBack(text, earliest, dot, kDigit);
    const std::size_t end = begin < dot ? Ipv4End(text, begin) : kNone;
    if (end != kNone) {
      return Match{begin, end, "[ip]"};
    }
  }
  return std::nullopt;
}

std::optional<Match> FindHost(std::string_view text, std::size_t from) {
  for (std::size_t colon = text.find(':', from); colon != kNone;
       colon = text.find(':', colon + 1)) {
    if (colon + 1 < text.size() && Is(text[colon + 1], kDigit)) {
      const std::size_t begin = SkipAllBack(text, from, colon, kHost);
      if (const auto match = HostInRun(text, begin, colon)) {
        return match;
      }
    }
  }
  return std::nullopt;
}

std::optional<Match> FindLongToken(std::string_view text, std::size_t from) {
  for (std::size_t i = FindTokenWindow(text, from); i != kNone; i = FindTokenWindow(text, i)) {
    const std::size_t run_end = SkipAll(text, i + kLongToken, kToken);
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
}

}  // namespace

std::string RemoveControls(std::string text) { return ReplaceAll(std::move(text), FindControl); }

std::string RemoveJoinedControls(std::string text) {
  if (text.find(kC1First) == kNone) {
    return text;
  }
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

bool HasEncoding(std::string_view text) { return FindEncoding(text, 0) < text.size(); }

std::string DecodeOnce(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  std::size_t copied = 0;
  for (std::size_t i = FindEncoding(text, 0); i < text.size(); i = FindEncoding(text, copied)) {
    result.append(text, copied, i - copied);
    copied = i + EncodingLength(text, i);
    result.push_back(
        static_cast<char>(HexValue(text[copied - 2]) * 16 + HexValue(text[copied - 1])));
  }
  result.append(text.substr(copied));
  return result;
}

std::string ReplaceUrls(std::string text) { return ReplaceAll(std::move(text), FindUrl); }

std::string ReplaceAddressTokens(std::string text) {
  return ReplaceAll(std::move(text), FindAddress);
}

std::string ReplaceIpv4(std::string text) { return ReplaceAll(std::move(text), FindIpv4); }

std::string ReplaceHosts(std::string text) { return ReplaceAll(std::move(text), FindHost); }

std::string ReplaceLongTokens(std::string text) {
  return ReplaceAll(std::move(text), FindLongToken);
}

}  // namespace korvane::redaction
