#include "egress/ip_literal.h"

#include <algorithm>
#include <charconv>
#include <cstddef>

namespace korvane {

namespace {

constexpr std::size_t kGroups = 8;

// The groups read so far, as the bytes of an address from its front.
struct Groups {
  std::array<std::uint8_t, 2 * kGroups> bytes{};
  std::size_t count = 0;

  bool Add(std::uint8_t high, std::uint8_t low) {
    if (count == kGroups) {
      return false;
    }
    bytes[2 * count] = high;
    bytes[2 * count + 1] = low;
    ++count;
    return true;
  }
};

// A whole text of one to `most_digits` digits of the base, sign and prefix refused.
bool ReadNumber(std::string_view text, std::size_t most_digits, int base, std::uint32_t& number) {
  if (text.empty() || text.size() > most_digits) {
    return false;
  }
  const char* const end = text.data() + text.size();
  return std::from_chars(text.data(), end, number, base).ptr == end;
}

// The part up to the separator, taken off the text together with it.
std::string_view TakeField(std::string_view& text, char separator) {
  const std::size_t end = std::min(text.find(separator), text.size());
  const std::string_view field = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return field;
}

bool ReadIpv4(std::string_view text, std::array<std::uint8_t, 4>& bytes) {
  if (std::count(text.begin(), text.end(), '.') != 3) {
    return false;
  }
  for (std::uint8_t& byte : bytes) {
    std::uint32_t number = 0;
    if (!ReadNumber(TakeField(text, '.'), 3, 10, number) || number > 255) {
      return false;
    }
    byte = static_cast<std::uint8_t>(number);
  }
  return true;
}

bool AddGroup(std::string_view field, bool may_be_dotted, Groups& groups) {
  std::array<std::uint8_t, 4> dotted{};
  if (may_be_dotted && field.find('.') != std::string_view::npos) {
    return ReadIpv4(field, dotted) && groups.Add(dotted[0], dotted[1]) &&
           groups.Add(dotted[2], dotted[3]);
  }
  std::uint32_t number = 0;
  return ReadNumber(field, 4, 16, number) &&
         groups.Add(static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number));
}

// Groups with single colons between them; an empty text has none.
bool ReadGroups(std::string_view text, bool ends_address, Groups& groups) {
  while (!text.empty()) {
    const bool last = text.find(':') == std::string_view::npos;
    const bool colon_at_end = text.find(':') == text.size() - 1;
    if (colon_at_end || !AddGroup(TakeField(text, ':'), last && ends_address, groups)) {
      return false;
    }
  }
  return true;
}

bool ReadIpv6(std::string_view text, std::array<std::uint8_t, 16>& bytes) {
  Groups front;
  const std::size_t gap = text.find("::");
  if (gap == std::string_view::npos) {
    const bool read = ReadGroups(text, true, front);
    bytes = front.bytes;
    return read && front.count == kGroups;
  }
  Groups back;
  if (text.find("::", gap + 1) != std::string_view::npos ||
      !ReadGroups(text.substr(0, gap), false, front) ||
      !ReadGroups(text.substr(gap + 2), true, back) || front.count + back.count >= kGroups) {
    return false;
  }
  bytes = front.bytes;
  std::copy_n(back.bytes.begin(), 2 * back.count, bytes.end() - static_cast<int>(2 * back.count));
  return true;
}

}  // namespace

IpLiteral ParseIpLiteral(std::string_view text) {
  if (text.size() >= 2 && text.front() == '[' && text.back() == ']') {
    text = text.substr(1, text.size() - 2);
  }
  text = text.substr(0, text.find('%'));

  IpLiteral literal;
  if (text.find(':') != std::string_view::npos) {
    literal.family = 6;
    literal.ok = ReadIpv6(text, literal.bytes);
  } else {
    std::array<std::uint8_t, 4> bytes{};
    literal.family = 4;
    literal.ok = ReadIpv4(text, bytes);
    std::copy(bytes.begin(), bytes.end(), literal.bytes.begin());
  }
  return literal.ok ? literal : IpLiteral{};
}

}  // namespace korvane
