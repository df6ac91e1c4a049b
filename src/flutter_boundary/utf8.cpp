#include "flutter_boundary/utf8.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "platform/os.h"

namespace korvane {

namespace {

bool IsContinuation(std::uint8_t byte) { return (byte & 0xC0) == 0x80; }

// Length of the well-formed sequence that `text` begins with, 0 when it begins with none. Only the
// second byte has bounds of its own: they keep out overlong forms (E0, F0), surrogates (ED) and
// what lies above U+10FFFF (F4).
std::size_t SequenceLength(std::string_view text) {
  const auto byte = [text](std::size_t at) { return static_cast<std::uint8_t>(text[at]); };
  const std::uint8_t lead = byte(0);
  if (lead < 0x80) {
    return 1;
  }
  const std::size_t length = lead < 0xC2   ? 0
                             : lead < 0xE0 ? 2
                             : lead < 0xF0 ? 3
                             : lead < 0xF5 ? 4
                                           : 0;
  if (length == 0 || text.size() < length) {
    return 0;
  }
  const std::uint8_t lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const std::uint8_t highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  if (byte(1) < lowest || byte(1) > highest) {
    return 0;
  }
  for (std::size_t at = 2; at < length; ++at) {
    if (!IsContinuation(byte(at))) {
      return 0;
    }
  }
  return length;
}

// How many bytes at the front are ASCII, in whole blocks.
std::size_t AsciiBlocks(std::string_view text) {
  constexpr std::size_t kBlock = 32;
  std::size_t length = 0;
  while (text.size() - length >= kBlock) {
    unsigned all = 0;
    for (std::size_t i = 0; i < kBlock; ++i) {
      all |= static_cast<std::uint8_t>(text[length + i]);
    }
    if (all >= 0x80) {
      break;
    }
    length += kBlock;
  }
  return length;
}

}  // namespace

bool IsValidUtf8(std::string_view text) {
  text.remove_prefix(AsciiBlocks(text));
  while (!text.empty()) {
    const std::size_t length = SequenceLength(text);
    if (length == 0) {
      return false;
    }
    text.remove_prefix(length);
  }
  return true;
}

std::string EnsureUtf8(std::string_view text) {
  if (IsValidUtf8(text)) {
    return std::string(text);
  }
  std::string converted = platform::os().text->AnsiToUtf8(text);
  if (!converted.empty()) {
    return converted;
  }
  std::string ascii(text);
  std::replace_if(
      ascii.begin(), ascii.end(), [](char c) { return static_cast<std::uint8_t>(c) >= 0x80; }, '?');
  return ascii;
}

}  // namespace korvane
