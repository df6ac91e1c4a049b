// expression_engines.h: what an engineer would take in place of hand-written matching, behind one
// face: an expression that finds its leftmost match at or behind a position, over bytes.
#pragma once

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>
#include <re2/re2.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <regex>
#include <stdexcept>
#include <string>
#include <string_view>

namespace korvane::bench {

struct Span {
  std::size_t begin = 0;
  std::size_t end = 0;
};

// Recurses for each character of a run, so it is given no long token.
class StdExpression {
 public:
  explicit StdExpression(const std::string& expression) : expression_(expression) {}

  std::optional<Span> Find(std::string_view text, std::size_t from) const {
    std::cmatch match;
    const auto flags =
        from == 0 ? std::regex_constants::match_default : std::regex_constants::match_prev_avail;
    if (!std::regex_search(text.data() + from, text.data() + text.size(), match, expression_,
                           flags)) {
      return std::nullopt;
    }
    const std::size_t begin = from + static_cast<std::size_t>(match.position());
    return Span{begin, begin + static_cast<std::size_t>(match.length())};
  }

 private:
  std::regex expression_;
};

class Re2Expression {
 public:
  explicit Re2Expression(const std::string& expression)
      : expression_(std::make_unique<RE2>(expression, RE2::Latin1)) {
    if (!expression_->ok()) {
      throw std::invalid_argument(expression_->error());
    }
  }

  std::optional<Span> Find(std::string_view text, std::size_t from) const {
    re2::StringPiece match;
    if (!expression_->Match({text.data(), text.size()}, from, text.size(), RE2::UNANCHORED, &match,
                            1)) {
      return std::nullopt;
    }
    const auto begin = static_cast<std::size_t>(match.data() - text.data());
    return Span{begin, begin + match.size()};
  }

 private:
  std::unique_ptr<RE2> expression_;
};

// Compiled to machine code.
class PcreExpression {
 public:
  explicit PcreExpression(const std::string& expression) {
    int error = 0;
    PCRE2_SIZE place = 0;
    code_.reset(pcre2_compile(reinterpret_cast<PCRE2_SPTR>(expression.data()), expression.size(), 0,
                              &error, &place, nullptr));
    if (code_ == nullptr || pcre2_jit_compile(code_.get(), PCRE2_JIT_COMPLETE) != 0) {
      throw std::invalid_argument(expression);
    }
    match_.reset(pcre2_match_data_create_from_pattern(code_.get(), nullptr));
  }

  std::optional<Span> Find(std::string_view text, std::size_t from) const {
    const int found = pcre2_jit_match(code_.get(), reinterpret_cast<PCRE2_SPTR>(text.data()),
                                      text.size(), from, 0, match_.get(), nullptr);
    if (found < 0) {
      return std::nullopt;
    }
    const PCRE2_SIZE* const place = pcre2_get_ovector_pointer(match_.get());
    return Span{place[0], place[1]};
  }

 private:
  struct Free {
    void operator()(pcre2_code* code) const { pcre2_code_free(code); }
    void operator()(pcre2_match_data* match) const { pcre2_match_data_free(match); }
  };

  std::unique_ptr<pcre2_code, Free> code_;
  std::unique_ptr<pcre2_match_data, Free> match_;
};

}  // namespace korvane::bench
