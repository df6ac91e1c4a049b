#include "recorder/graphics_adapter.h"

#include <algorithm>
#include <optional>
#include <string_view>

namespace korvane {

namespace {

bool IsHighSurrogate(char16_t unit) { return (unit & 0xFC00) == 0xD800; }
bool IsLowSurrogate(char16_t unit) { return (unit & 0xFC00) == 0xDC00; }

// A byte that carries the six bits above `shift`.
char Continuation(char32_t code_point, int shift) {
  return static_cast<char>(0x80 | ((code_point >> shift) & 0x3F));
}

void AppendUtf8(std::string& out, char32_t code_point) {
  if (code_point < 0x80) {
    out += static_cast<char>(code_point);
    return;
  }
  if (code_point < 0x800) {
    out += static_cast<char>(0xC0 | (code_point >> 6));
  } else {
    if (code_point < 0x10000) {
      out += static_cast<char>(0xE0 | (code_point >> 12));
    } else {
      out += static_cast<char>(0xF0 | (code_point >> 18));
      out += Continuation(code_point, 12);
    }
    out += Continuation(code_point, 6);
  }
  out += Continuation(code_point, 0);
}

// Nothing for a lone surrogate.
std::optional<std::string> Utf8FromUtf16Units(std::u16string_view units) {
  std::string utf8;
  utf8.reserve(units.size());
  for (std::size_t i = 0; i < units.size(); ++i) {
    char32_t code_point = units[i];
    if (IsHighSurrogate(units[i]) && i + 1 < units.size() && IsLowSurrogate(units[i + 1])) {
      ++i;
      code_point = 0x10000 + ((code_point & 0x3FF) << 10) + (units[i] & 0x3FFU);
    } else if (IsHighSurrogate(units[i]) || IsLowSurrogate(units[i])) {
      return std::nullopt;
    }
    AppendUtf8(utf8, code_point);
  }
  return utf8;
}

}  // namespace

AdapterName NameOfAdapter(GraphicsAdapter& adapter) {
  GraphicsAdapterDescription description{};
  const std::int32_t hresult = adapter.table->get_desc(&adapter, &description);
  if (hresult < 0) {
    return {.outcome = AdapterOutcome::kDescriptionFailed, .utf8 = {}, .hresult = hresult};
  }
  const char16_t* const begin = description.description;
  const char16_t* const end = std::find(begin, begin + kDescriptionUnits, u'\0');
  auto utf8 = Utf8FromUtf16Units({begin, end});
  if (!utf8) {
    return {.outcome = AdapterOutcome::kEncodingFailed, .utf8 = {}, .hresult = 0};
  }
  return {.outcome = AdapterOutcome::kNamed, .utf8 = std::move(*utf8), .hresult = 0};
}

}  // namespace korvane
