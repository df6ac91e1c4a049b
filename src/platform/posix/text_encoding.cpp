#include "platform/text_encoding.h"

#include <array>
#include <cstdint>
#include <system_error>
#include <type_traits>

#include "platform/no_destructor.h"
#include "platform/posix/wide_bytes.h"
#include "platform/real_os.h"

namespace korvane::platform {
namespace {

constexpr std::uint32_t kReplacement = 0xFFFD;

// Windows-1252 from 0x80 to 0x9F; a byte without a character keeps its number, as Windows does it.
constexpr std::array<std::uint16_t, 32> kWindows1252 = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

// A wide character is a code here. Its type has a sign, and a negative one is no character.
constexpr std::uint32_t CodeOf(wchar_t character) {
  return static_cast<std::make_unsigned_t<wchar_t>>(character);
}

constexpr bool IsScalar(std::uint32_t code) {
  return code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
}

// Precondition: IsScalar(code).
void AppendUtf8(std::string& text, std::uint32_t code) {
  const auto trail = [code](int shift) { return static_cast<char>(0x80 | (code >> shift & 0x3F)); };
  if (code < 0x80) {
    text += static_cast<char>(code);
  } else if (code < 0x800) {
    text += {static_cast<char>(0xC0 | code >> 6), trail(0)};
  } else if (code < 0x10000) {
    text += {static_cast<char>(0xE0 | code >> 12), trail(6), trail(0)};
  } else {
    text += {static_cast<char>(0xF0 | code >> 18), trail(12), trail(6), trail(0)};
  }
}

// How many bytes the sequence has that begins with this byte; 0 for a byte that begins none.
constexpr std::size_t SequenceLength(std::uint8_t lead) {
  if (lead < 0x80) {
    return 1;
  }
  if (lead < 0xC2) {  // a trail byte, or an overlong form of ASCII
    return 0;
  }
  if (lead < 0xE0) {
    return 2;
  }
  return lead < 0xF0 ? 3 : (lead < 0xF5 ? 4 : 0);
}

// Takes one character off the front of `rest`; nothing, and `rest` as it was, when it is invalid.
std::optional<std::uint32_t> TakeCharacter(std::string_view& rest) {
  const auto byte = [&rest](std::size_t index) { return static_cast<std::uint8_t>(rest[index]); };
  const std::size_t length = SequenceLength(byte(0));
  if (length == 0 || length > rest.size()) {
    return std::nullopt;
  }
  std::uint32_t code = length == 1 ? byte(0) : byte(0) & (0x7FU >> length);
  for (std::size_t index = 1; index < length; ++index) {
    if ((byte(index) & 0xC0) != 0x80) {
      return std::nullopt;
    }
    code = code << 6 | (byte(index) & 0x3FU);
  }
  constexpr std::array<std::uint32_t, 5> kSmallest = {0, 0, 0x80, 0x800, 0x10000};
  if (code < kSmallest[length] || !IsScalar(code)) {
    return std::nullopt;
  }
  rest.remove_prefix(length);
  return code;
}

class PosixTextEncoding final : public TextEncoding {
 public:
  std::string AnsiToUtf8(std::string_view text) override {
    std::string utf8;
    utf8.reserve(text.size());
    for (const char character : text) {
      const auto byte = static_cast<std::uint8_t>(character);
      AppendUtf8(utf8, byte >= 0x80 && byte < 0xA0 ? kWindows1252[byte - 0x80U] : byte);
    }
    return utf8;
  }

  std::optional<std::string> WideToUtf8(std::wstring_view text) override {
    std::string utf8;
    utf8.reserve(text.size());
    for (const wchar_t character : text) {
      const std::uint32_t code = CodeOf(character);
      if (!IsScalar(code)) {
        return std::nullopt;
      }
      AppendUtf8(utf8, code);
    }
    return utf8;
  }

  std::string WideToUtf8Lossy(std::wstring_view text) override {
    std::string utf8;
    utf8.reserve(text.size());
    for (const wchar_t character : text) {
      const std::uint32_t code = CodeOf(character);
      AppendUtf8(utf8, IsScalar(code) ? code : kReplacement);
    }
    return utf8;
  }

  std::optional<std::wstring> Utf8ToWide(std::string_view text) override {
    std::wstring wide;
    wide.reserve(text.size());
    while (!text.empty()) {
      const std::optional<std::uint32_t> code = TakeCharacter(text);
      if (!code) {
        return std::nullopt;
      }
      wide += static_cast<wchar_t>(*code);
    }
    return wide;
  }

  std::filesystem::path PathFromNarrow(std::string_view path) override { return path; }
  std::string NarrowFromPath(const std::filesystem::path& path) override { return path.native(); }
  std::filesystem::path PathFromWide(std::wstring_view path) override {
    return BytesFromWide(path);
  }
  char PathSeparator() override { return '/'; }

  std::string ErrorMessage(ErrorCode error) override {
    return std::system_category().message(static_cast<int>(error));
  }
};

}  // namespace

TextEncoding& RealTextEncoding() {
  static NoDestructor<PosixTextEncoding> text;
  return *text;
}

}  // namespace korvane::platform
