// command_line_rows.h: command lines and the words that they stand for, on Windows as on Linux.
#pragma once

#include <string>
#include <vector>

namespace korvane::platform {

struct CommandLineRow {
  const char* why;
  std::wstring line;
  std::vector<std::wstring> words;
};

inline std::vector<CommandLineRow> CommandLineRows() {
  return {
      {"a plain program", L"schtasks.exe", {L"schtasks.exe"}},
      {"blanks and tabs between words", L"p  a\tb \t", {L"p", L"a", L"b"}},
      {"a quoted program", LR"("C:\Program Files\k.exe" a)", {LR"(C:\Program Files\k.exe)", L"a"}},
      {"a program that ends in a backslash", LR"("C:\dir\" a)", {LR"(C:\dir\)", L"a"}},
      {"quotes within a program", LR"(C:\a\"b c)", {LR"(C:\a\"b)", L"c"}},
      {"a quoted program without a blank behind it", LR"("p"a b)", {L"p", L"a", L"b"}},
      {"a quoted program without an end", LR"("p a)", {L"p a"}},
      {"a blank in front", L" a b", {L"", L"a", L"b"}},
      {"backslashes in front of no quote", LR"(p \\a\b\\)", {L"p", LR"(\\a\b\\)"}},
      {"an even number in front of a quote", LR"(p "a\\" b)", {L"p", LR"(a\)", L"b"}},
      {"an odd number in front of a quote", LR"(p "a\\\" b")", {L"p", LR"(a\" b)"}},
      {"an escaped quote, then a real one", LR"(p \"" a")", {L"p", LR"(" a)"}},
      {"empty words", LR"(p "" "")", {L"p", L"", L""}},
      {"two quotes in a quoted part", LR"(p "a""b c")", {L"p", LR"(a"b)", LR"(c)"}},
      {"three quotes", LR"(p """a b""")", {L"p", LR"("a)", LR"(b")"}},
      {"four quotes", LR"(p """" a)", {L"p", LR"(" a)"}},
      {"seven quotes", LR"(p """"""" a)", {L"p", LR"("" a)"}},
      {"a quoted part without an end", LR"(p "a b)", {L"p", L"a b"}},
      {"the task's action",
       LR"(schtasks.exe /Create /TR "\"C:\a b\k.exe\"" /F)",
       {L"schtasks.exe", L"/Create", L"/TR", LR"("C:\a b\k.exe")", L"/F"}},
  };
}

}  // namespace korvane::platform
