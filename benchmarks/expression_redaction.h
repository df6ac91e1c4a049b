// expression_redaction.h: the redaction as it would be written on an engine of expressions. Gives
// the same bytes as redactDiagnosticText, which each measurement checks before it begins.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

#include "expression_engines.h"

namespace korvane::bench {

template <typename Expression>
class ExpressionRedaction {
 public:
  std::string Redact(std::string_view text) const {
    std::string clean = Replace(controls_, text, [](std::string_view) { return ""; });
    for (int pass = 0; pass < 4 && encoding_.Find(clean, 0); ++pass) {
      clean = Replace(encoding_, clean, Decoded);
    }
    if (encoding_.Find(clean, 0)) {
      return kOmitted;
    }
    while (controls_.Find(clean, 0)) {
      clean = Replace(controls_, clean, [](std::string_view) { return ""; });
    }
    if (encoding_.Find(clean, 0)) {
      return kOmitted;
    }
    clean = Replace(url_, clean, [](std::string_view) { return "[url]"; });
    clean = Replace(address_, clean, Address);
    clean = Replace(ipv4_, clean, [](std::string_view) { return "[ip]"; });
    clean = Replace(host_, clean, Host);
    return Replace(token_, clean, [](std::string_view) { return "[redacted]"; });
  }

 private:
  static constexpr char kOmitted[] = "[omitted: encoded diagnostic]";

  template <typename Replacement>
  static std::string Replace(const Expression& expression, std::string_view text,
                             Replacement replacement) {
    std::string result;
    result.reserve(text.size());
    std::size_t copied = 0;
    for (auto match = expression.Find(text, 0); match; match = expression.Find(text, match->end)) {
      result += text.substr(copied, match->begin - copied);
      result += replacement(text.substr(match->begin, match->end - match->begin));
      copied = match->end;
    }
    result += text.substr(copied);
    return result;
  }

  static std::string Decoded(std::string_view encoding) {
    const std::string digits(encoding.substr(encoding.size() - 2));
    return {1, static_cast<char>(std::stoi(digits, nullptr, 16))};
  }

  static std::string_view Address(std::string_view token) {
    const bool address = token.find("::") != std::string_view::npos ||
                         std::count(token.begin(), token.end(), ':') >= 3;
    return address ? "[ip]" : token;
  }

  static std::string_view Host(std::string_view host) {
    return host.substr(0, host.find(':')).ends_with(".go") ? host : "[host]";
  }

  const Expression controls_{
      R"(\x1B(?:\[[0-?]*[ -/]*[@-~]|\][^\x07\x1B]*(?:\x07|\x1B\\))|[\x00-\x08\x0B-\x1F\x7F]|\xC2[\x80-\x9F])"};
  const Expression encoding_{R"(%[0-9a-fA-F]{2}|\\u00[0-9a-fA-F]{2})"};
  const Expression url_{R"([a-zA-Z][a-zA-Z0-9+.-]*://[^\s"']+)"};
  const Expression address_{R"([0-9A-Fa-f:.]+(?:%[A-Za-z0-9_.~-]+)?)"};
  const Expression ipv4_{R"(\d{1,3}(?:\.\d{1,3}){3}(?::\d{1,5})?)"};
  const Expression host_{
      R"(\b(?:[A-Za-z0-9](?:[A-Za-z0-9-]*[A-Za-z0-9])?\.)+[A-Za-z]{2,}:\d{1,5}\b)"};
  const Expression token_{R"(\b[A-Za-z0-9+/_-]{24,}={0,2}\b)"};
};

}  // namespace korvane::bench
