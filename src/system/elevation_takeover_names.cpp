#include "system/elevation_takeover_names.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "system/elevation_takeover.h"

namespace korvane {

namespace {

constexpr std::wstring_view kEventPrefix = L"Local\\Korvane.Takeover.";
constexpr std::size_t kMaxTokenLength = 64;
constexpr std::size_t kMinSidLength = 5;
constexpr std::size_t kMaxSidLength = 256;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool IsHexDigit(char c) { return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

wchar_t Lower(wchar_t c) {
  return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
}

std::wstring Wide(std::string_view ascii) { return {ascii.begin(), ascii.end()}; }

void AppendHex(std::wstring& text, std::uint32_t value, int digits) {
  for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) {
    text += L"0123456789ABCDEF"[(value >> shift) & 0xF];
  }
}

}  // namespace

std::wstring TakeoverToken(const platform::Guid& guid) {
  std::wstring token;
  AppendHex(token, guid.data1, 8);
  AppendHex(token, guid.data2, 4);
  AppendHex(token, guid.data3, 4);
  for (const std::uint8_t byte : guid.data4) {
    AppendHex(token, byte, 2);
  }
  return token;
}

std::wstring TakeoverRequestEventName(const std::wstring& token) {
  return std::wstring(kEventPrefix) + token + L".Request";
}

std::wstring TakeoverReadyEventName(const std::wstring& token) {
  return std::wstring(kEventPrefix) + token + L".Ready";
}

std::wstring TakeoverChildParameters(const std::wstring& token, const std::wstring& parent_sid) {
  return L"--elevated-restart " + Wide(kTakeoverTokenArgument) + token + L" " +
         Wide(kParentSidArgument) + parent_sid;
}

bool IsTakeoverToken(std::string_view text) {
  return !text.empty() && text.size() <= kMaxTokenLength && std::ranges::all_of(text, IsHexDigit);
}

bool IsSidText(std::string_view text) {
  return text.size() >= kMinSidLength && text.size() <= kMaxSidLength && text.starts_with("S-") &&
         std::ranges::all_of(text, [](char c) { return IsDigit(c) || c == '-' || c == 'S'; });
}

bool EqualIgnoringCase(std::wstring_view left, std::wstring_view right) {
  return std::ranges::equal(left, right, {}, Lower, Lower);
}

}  // namespace korvane
