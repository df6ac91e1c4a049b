#include "platform/text_encoding.h"

#include <gtest/gtest.h>

#include "platform/real_os.h"

namespace korvane::platform {
namespace {

using namespace std::string_literals;

std::string Bytes(const char8_t* text) { return std::string(reinterpret_cast<const char*>(text)); }

TEST(TextEncoding, ValidUtf8GoesToWideTextAndBack) {
  struct Row {
    const char* why;
    std::string utf8;
    std::wstring wide;
  };
  const Row rows[] = {
      {"empty", "", L""},
      {"NUL is a character", "a\0b"s, L"a\0b"s},
      {"first and last of two bytes", Bytes(u8"\u0080\u07FF"), L"\u0080\u07FF"},
      {"first and last of three bytes", Bytes(u8"\u0800\uFFFF"), L"\u0800\uFFFF"},
      {"around the surrogates", "\xED\x9F\xBF\xEE\x80\x80", L"\uD7FF\uE000"},
      {"first and last of four bytes", Bytes(u8"\U00010000\U0010FFFF"), L"\U00010000\U0010FFFF"},
      {"a byte order mark stays", Bytes(u8"\uFEFFx"), L"\uFEFFx"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(RealTextEncoding().Utf8ToWide(row.utf8), row.wide);
    EXPECT_EQ(RealTextEncoding().WideToUtf8(row.wide), row.utf8);
    EXPECT_EQ(RealTextEncoding().WideToUtf8Lossy(row.wide), row.utf8);
  }
}

TEST(TextEncoding, InvalidUtf8IsRefused) {
  struct Row {
    const char* why;
    std::string utf8;
  };
  const Row rows[] = {
      {"a trail byte alone", "a\x80"},
      {"an overlong form of two bytes", "\xC1\xBF"},
      {"an overlong form of three bytes", "\xE0\x9F\xBF"},
      {"an overlong form of four bytes", "\xF0\x8F\xBF\xBF"},
      {"the first surrogate", "\xED\xA0\x80"},
      {"the last surrogate", "\xED\xBF\xBF"},
      {"above U+10FFFF", "\xF4\x90\x80\x80"},
      {"a lead byte that is none", "\xF5\x80\x80\x80"},
      {"a lead byte that is none", "\xFF"},
      {"cut after the lead byte", "a\xC3"},
      {"cut in three bytes", "a\xE2\x82"},
      {"cut in four bytes", "a\xF0\x9F\x94"},
      {"a sequence broken by ASCII", "\xE2\x82z"},
      {"a sequence broken by another", "\xF0\x9F\xC3\xA9"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(RealTextEncoding().Utf8ToWide(row.utf8), std::nullopt);
  }
}

TEST(TextEncoding, LoneSurrogatesAreRefusedOrReplaced) {
  for (const wchar_t surrogate :
       {wchar_t{0xD800}, wchar_t{0xDBFF}, wchar_t{0xDC00}, wchar_t{0xDFFF}}) {
    for (const std::wstring& text :
         {std::wstring{surrogate}, L"a" + std::wstring{surrogate} + L"b"}) {
      EXPECT_EQ(RealTextEncoding().WideToUtf8(text), std::nullopt);
    }
    EXPECT_EQ(RealTextEncoding().WideToUtf8Lossy(L"a" + std::wstring{surrogate} + L"b"),
              Bytes(u8"a\uFFFDb"));
  }
}

// Both systems: the tests run with code page 1252 under Wine.
TEST(TextEncoding, AnsiTextIsReadAsWindows1252) {
  std::string ansi;
  for (int value = 0x80; value < 0x100; ++value) {
    ansi += static_cast<char>(value);
  }
  std::string expected = Bytes(
      u8"\u20AC\u0081\u201A\u0192\u201E\u2026\u2020\u2021\u02C6\u2030\u0160\u2039\u0152"
      u8"\u008D\u017D\u008F\u0090\u2018\u2019\u201C\u201D\u2022\u2013\u2014\u02DC\u2122"
      u8"\u0161\u203A\u0153\u009D\u017E\u0178");
  for (int value = 0xA0; value < 0x100; ++value) {
    expected += static_cast<char>(0xC0 | value >> 6);
    expected += static_cast<char>(0x80 | (value & 0x3F));
  }
  EXPECT_EQ(RealTextEncoding().AnsiToUtf8(ansi), expected);
  EXPECT_EQ(RealTextEncoding().AnsiToUtf8(""), "");
  EXPECT_EQ(RealTextEncoding().AnsiToUtf8("a\0b"s), "a\0b"s);
}

TEST(TextEncoding, PathsKeepTheirCharacters) {
  const char separator = RealTextEncoding().PathSeparator();
  // Pound sign in Windows-1252; on Linux a byte that is no UTF-8, and no business of ours.
  const std::string narrow = "folder"s + separator + "\xA3.txt";
  const std::filesystem::path path = RealTextEncoding().PathFromNarrow(narrow);
  EXPECT_EQ(RealTextEncoding().NarrowFromPath(path), narrow);
  EXPECT_EQ(path.parent_path(), "folder");
  EXPECT_TRUE(RealTextEncoding().PathFromNarrow("").empty());
  EXPECT_EQ(RealTextEncoding().PathFromWide(L"\u0436\u4E2D").u8string(), u8"\u0436\u4E2D");
}

TEST(TextEncoding, ErrorMessageIsOneLineForEveryNumber) {
  for (const ErrorCode error : {ErrorCode{2}, ErrorCode{5}, ErrorCode{13}, ErrorCode{0xFFFFFFFF}}) {
    const std::string message = RealTextEncoding().ErrorMessage(error);
    EXPECT_FALSE(message.empty());
    EXPECT_EQ(message.find_first_of("\r\n"), std::string::npos);
    EXPECT_TRUE(RealTextEncoding().Utf8ToWide(message).has_value());
  }
  EXPECT_NE(RealTextEncoding().ErrorMessage(2), RealTextEncoding().ErrorMessage(5));
}

}  // namespace
}  // namespace korvane::platform
