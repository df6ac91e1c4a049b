#include "platform/posix/command_line_words.h"

#include <algorithm>
#include <cstddef>

namespace korvane::platform {

namespace {

bool IsBlank(wchar_t character) { return character == L' ' || character == L'\t'; }

// Takes what `belongs` says off the front of the text.
template <typename Belongs>
std::wstring_view TakeWhile(std::wstring_view& text, Belongs belongs) {
  const auto end = std::find_if_not(text.begin(), text.end(), belongs);
  const std::wstring_view taken = text.substr(0, static_cast<std::size_t>(end - text.begin()));
  text.remove_prefix(taken.size());
  return taken;
}

std::size_t TakeRun(std::wstring_view& text, wchar_t character) {
  return TakeWhile(text, [character](wchar_t other) { return other == character; }).size();
}

// The word in the making. A count of open quotes other than 0 keeps blanks in it.
struct Word {
  std::wstring text;
  std::size_t quotes = 0;
};

// A run of quotes whose first is not escaped. With the one that opened the part counted, each third
// is a plain character, and two close what one opened.
void TakeQuotes(std::wstring_view& rest, Word& word) {
  const std::size_t quotes = word.quotes + TakeRun(rest, L'"');
  word.text.append(quotes / 3, L'"');
  word.quotes = quotes % 3 == 2 ? 0 : quotes % 3;
}

void TakeBackslashes(std::wstring_view& rest, Word& word) {
  const std::size_t count = TakeRun(rest, L'\\');
  const bool before_quote = !rest.empty() && rest.front() == L'"';
  word.text.append(before_quote ? count / 2 : count, L'\\');
  if (before_quote && count % 2 != 0) {
    word.text += L'"';
    rest.remove_prefix(1);
  }
}

std::wstring TakeWord(std::wstring_view& rest) {
  Word word;
  while (!rest.empty() && (word.quotes != 0 || !IsBlank(rest.front()))) {
    if (rest.front() == L'"') {
      TakeQuotes(rest, word);
    } else if (rest.front() == L'\\') {
      TakeBackslashes(rest, word);
    } else {
      word.text += rest.front();
      rest.remove_prefix(1);
    }
  }
  return word.text;
}

std::wstring TakeProgram(std::wstring_view& rest) {
  if (rest.front() != L'"') {
    return std::wstring(TakeWhile(rest, [](wchar_t character) { return !IsBlank(character); }));
  }
  rest.remove_prefix(1);
  std::wstring program(TakeWhile(rest, [](wchar_t character) { return character != L'"'; }));
  rest.remove_prefix(rest.empty() ? 0 : 1);
  return program;
}

void AppendWords(std::wstring_view rest, std::vector<std::wstring>& words) {
  for (TakeWhile(rest, IsBlank); !rest.empty(); TakeWhile(rest, IsBlank)) {
    words.push_back(TakeWord(rest));
  }
}

}  // namespace

std::vector<std::wstring> CommandLineWords(std::wstring_view line) {
  std::vector<std::wstring> words = {TakeProgram(line)};
  AppendWords(line, words);
  return words;
}

std::vector<std::wstring> ParameterWords(std::wstring_view parameters) {
  std::vector<std::wstring> words;
  AppendWords(parameters, words);
  return words;
}

}  // namespace korvane::platform
