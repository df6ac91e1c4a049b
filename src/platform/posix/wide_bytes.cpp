#include "platform/posix/wide_bytes.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "platform/real_os.h"

namespace korvane::platform {

namespace {

constexpr wchar_t kEscapeBase = 0xDC00;
constexpr std::size_t kLongestSequence = 4;

bool IsEscapedByte(wchar_t character) {
  return character >= kEscapeBase + 0x80 && character <= kEscapeBase + 0xFF;
}

// Takes one character, or one stray byte, off the front. Precondition: not empty.
wchar_t TakeCharacter(std::string_view& bytes) {
  for (std::size_t length = 1; length <= std::min(kLongestSequence, bytes.size()); ++length) {
    const std::optional<std::wstring> character =
        RealTextEncoding().Utf8ToWide(bytes.substr(0, length));
    if (character) {
      bytes.remove_prefix(length);
      return character->front();
    }
  }
  const auto stray = static_cast<std::uint8_t>(bytes.front());
  bytes.remove_prefix(1);
  return static_cast<wchar_t>(kEscapeBase + stray);
}

}  // namespace

std::wstring WideFromBytes(std::string_view bytes) {
  if (std::optional<std::wstring> valid = RealTextEncoding().Utf8ToWide(bytes)) {
    return *std::move(valid);
  }
  std::wstring text;
  text.reserve(bytes.size());
  while (!bytes.empty()) {
    text += TakeCharacter(bytes);
  }
  return text;
}

std::string BytesFromWide(std::wstring_view text) {
  std::string bytes;
  while (!text.empty()) {
    const auto escape = std::find_if(text.begin(), text.end(), IsEscapedByte);
    const auto plain = static_cast<std::size_t>(escape - text.begin());
    bytes += RealTextEncoding().WideToUtf8Lossy(text.substr(0, plain));
    text.remove_prefix(plain);
    for (; !text.empty() && IsEscapedByte(text.front()); text.remove_prefix(1)) {
      bytes += static_cast<char>(text.front() - kEscapeBase);
    }
  }
  return bytes;
}

}  // namespace korvane::platform
