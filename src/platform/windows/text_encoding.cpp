#include "platform/text_encoding.h"

#include <windows.h>

#include <limits>
#include <system_error>

#include "platform/no_destructor.h"
#include "platform/real_os.h"

namespace korvane::platform {
namespace {

// The system's conversions count in int: a longer text can't be converted.
constexpr std::size_t kLongestText = std::numeric_limits<int>::max();

std::optional<std::wstring> ToWide(UINT code_page, DWORD flags, std::string_view text) {
  if (text.empty()) {
    return std::wstring();  // the system refuses an empty text
  }
  if (text.size() > kLongestText) {
    return std::nullopt;
  }
  const int size = static_cast<int>(text.size());
  const int length = ::MultiByteToWideChar(code_page, flags, text.data(), size, nullptr, 0);
  if (length <= 0) {
    return std::nullopt;
  }
  std::wstring wide(static_cast<std::size_t>(length), L'\0');
  if (::MultiByteToWideChar(code_page, flags, text.data(), size, wide.data(), length) != length) {
    return std::nullopt;
  }
  return wide;
}

std::optional<std::string> FromWide(UINT code_page, DWORD flags, std::wstring_view text) {
  if (text.empty()) {
    return std::string();
  }
  if (text.size() > kLongestText) {
    return std::nullopt;
  }
  const int size = static_cast<int>(text.size());
  const int length =
      ::WideCharToMultiByte(code_page, flags, text.data(), size, nullptr, 0, nullptr, nullptr);
  if (length <= 0) {
    return std::nullopt;
  }
  std::string narrow(static_cast<std::size_t>(length), '\0');
  if (::WideCharToMultiByte(code_page, flags, text.data(), size, narrow.data(), length, nullptr,
                            nullptr) != length) {
    return std::nullopt;
  }
  return narrow;
}

class WindowsTextEncoding final : public TextEncoding {
 public:
  std::string AnsiToUtf8(std::string_view text) override {
    const std::optional<std::wstring> wide = ToWide(CP_ACP, 0, text);
    return wide ? FromWide(CP_UTF8, 0, *wide).value_or("") : "";
  }

  std::optional<std::string> WideToUtf8(std::wstring_view text) override {
    return FromWide(CP_UTF8, WC_ERR_INVALID_CHARS, text);
  }

  std::string WideToUtf8Lossy(std::wstring_view text) override {
    return FromWide(CP_UTF8, 0, text).value_or("");
  }

  std::optional<std::wstring> Utf8ToWide(std::string_view text) override {
    return ToWide(CP_UTF8, MB_ERR_INVALID_CHARS, text);
  }

  std::filesystem::path PathFromNarrow(std::string_view path) override {
    return ToWide(CP_ACP, 0, path).value_or(L"");
  }

  std::string NarrowFromPath(const std::filesystem::path& path) override {
    return FromWide(CP_ACP, 0, path.native()).value_or("");
  }

  std::filesystem::path PathFromWide(std::wstring_view path) override { return path; }

  char PathSeparator() override { return '\\'; }

  std::string ErrorMessage(ErrorCode error) override {
    // The library asks the system in the ANSI code page.
    std::string message = AnsiToUtf8(std::system_category().message(static_cast<int>(error)));
    message.erase(message.find_last_not_of("\r\n") + 1);
    return message;
  }
};

}  // namespace

TextEncoding& RealTextEncoding() {
  static NoDestructor<WindowsTextEncoding> text;
  return *text;
}

}  // namespace korvane::platform
