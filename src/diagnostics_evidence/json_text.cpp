#include "diagnostics_evidence/json_text.h"

#include <charconv>
#include <cstdio>

#include "diagnostics_evidence/evidence_files.h"

namespace korvane {

namespace {

constexpr std::size_t kNone = std::string_view::npos;

// The place behind the colon that follows the first quoted key.
std::size_t BehindColon(std::string_view text, std::string_view key) {
  const std::string quoted = '"' + std::string(key) + '"';
  const std::size_t found = text.find(quoted);
  if (found == kNone) {
    return kNone;
  }
  const std::size_t colon = text.find(':', found + quoted.size());
  return colon == kNone ? kNone : colon + 1;
}

bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

char Unescaped(char letter) {
  switch (letter) {
    case '"':
    case '/':
    case '\\':
      return letter;
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    default:
      return 0;
  }
}

}  // namespace

std::string jsonEscape(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '"':
        escaped += "\\\"";
        break;
      case '\\':
        escaped += "\\\\";
        break;
      case '\t':
        escaped += "\\t";
        break;
      case '\n':
        escaped += "\\n";
        break;
      case '\r':
        escaped += "\\r";
        break;
      default:
        if (static_cast<unsigned char>(c) < 32) {
          constexpr char kDigits[] = "0123456789abcdef";
          escaped += "\\u00";
          escaped += kDigits[c >> 4];
          escaped += kDigits[c & 15];
        } else {
          escaped += c;
        }
    }
  }
  return escaped;
}

std::size_t FindClosingQuote(std::string_view text, std::size_t begin) {
  bool escaped = false;
  for (std::size_t i = begin; i < text.size(); ++i) {
    if (text[i] == '"' && !escaped) {
      return i;
    }
    escaped = text[i] == '\\' && !escaped;
  }
  return kNone;
}

std::string JsonUnescape(std::string_view text) {
  std::string plain;
  plain.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char replacement = text[i] == '\\' && i + 1 < text.size() ? Unescaped(text[i + 1]) : '\0';
    if (replacement != 0) {
      plain += replacement;
      ++i;
    } else {
      plain += text[i];
    }
  }
  return plain;
}

std::string jsonStringField(std::string_view text, std::string_view key) {
  const std::size_t value = BehindColon(text, key);
  const std::size_t quote = value == kNone ? kNone : text.find('"', value);
  if (quote == kNone) {
    return {};
  }
  const std::size_t end = FindClosingQuote(text, quote + 1);
  return end == kNone ? std::string() : JsonUnescape(text.substr(quote + 1, end - quote - 1));
}

std::optional<std::int32_t> jsonIntField(std::string_view text, std::string_view key) {
  std::size_t begin = BehindColon(text, key);
  if (begin == kNone) {
    return std::nullopt;
  }
  while (begin < text.size() && IsSpace(text[begin])) {
    ++begin;
  }
  std::size_t digits = begin;
  if (digits < text.size() && (text[digits] == '-' || text[digits] == '+')) {
    ++digits;
  }
  std::size_t end = digits;
  while (end < text.size() && IsDigit(text[end])) {
    ++end;
  }
  if (end == digits) {
    return std::nullopt;
  }
  // The conversion takes a minus alone.
  const char* first = text.data() + (text[begin] == '+' ? digits : begin);
  std::int32_t value = 0;
  if (std::from_chars(first, text.data() + end, value).ec != std::errc()) {
    ReportEvidence("Field '" + std::string(key) + "' is not an in-range int ('" +
                   std::string(text.substr(begin, end - begin)) + "'); reported as absent");
    return std::nullopt;
  }
  return value;
}

}  // namespace korvane
