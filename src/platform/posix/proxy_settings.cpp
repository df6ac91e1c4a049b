// The settings are the file "proxy_settings" of user_text_file.h, UTF-8, one NAME=TEXT in a line:
//
//   flags=2
//   server=127.0.0.1:10081
//   bypass=localhost;127.*
//   auto_config_url=http://example.org/proxy.pac
//
// The first of several like lines counts. A missing line, a text that is no UTF-8 and a number that
// is none read as their defaults: direct, and empty texts. Storing sets the first three and leaves
// every other line as it is.

#include "platform/proxy_settings.h"

#include <cerrno>
#include <charconv>
#include <optional>
#include <string_view>

#include "platform/no_destructor.h"
#include "platform/posix/user_text_file.h"
#include "platform/real_os.h"

namespace korvane::platform {
namespace {

constexpr char kFile[] = "proxy_settings";
constexpr std::string_view kFlags = "flags=";
constexpr std::string_view kServer = "server=";
constexpr std::string_view kBypass = "bypass=";
constexpr std::string_view kAutoConfigUrl = "auto_config_url=";

std::string_view ValueOf(const TextLines& lines, std::string_view name) {
  for (const std::string_view line : lines) {
    if (line.starts_with(name)) {
      return line.substr(name.size());
    }
  }
  return {};
}

void SetValue(TextLines& lines, std::string_view name, std::string_view value) {
  const std::string wanted = std::string(name).append(value);
  for (std::string& line : lines) {
    if (line.starts_with(name)) {
      line = wanted;
      return;
    }
  }
  lines.push_back(wanted);
}

std::uint32_t FlagsOf(std::string_view text) {
  std::uint32_t flags = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, flags);
  return error == std::errc() && rest == end ? flags : kProxyTypeDirect;
}

std::wstring TextOf(std::string_view utf8) {
  return RealTextEncoding().Utf8ToWide(utf8).value_or(L"");
}

class PosixProxySettings final : public ProxySettings {
 public:
  Status Store(std::uint32_t flags, const std::wstring& server,
               const std::wstring& bypass) override {
    const std::optional<std::string> server_text = RealTextEncoding().WideToUtf8(server);
    const std::optional<std::string> bypass_text = RealTextEncoding().WideToUtf8(bypass);
    if (!server_text || !bypass_text || !FitsInOneLine(*server_text) ||
        !FitsInOneLine(*bypass_text)) {
      return Status::Fail(EINVAL);
    }
    return ChangeUserText(kFile, [&](TextLines& lines) {
      SetValue(lines, kFlags, std::to_string(flags));
      SetValue(lines, kServer, *server_text);
      SetValue(lines, kBypass, *bypass_text);
      return Status::Ok();
    });
  }

  void AnnounceChange() override {}

  Result<ConnectionProxy> Query() override {
    const Result<TextLines> read = ReadUserText(kFile);
    if (!read) {
      return Result<ConnectionProxy>::Fail(read.error());
    }
    const TextLines& lines = read.value();
    return ConnectionProxy{.flags = FlagsOf(ValueOf(lines, kFlags)),
                           .server = TextOf(ValueOf(lines, kServer)),
                           .bypass = TextOf(ValueOf(lines, kBypass)),
                           .auto_config_url = TextOf(ValueOf(lines, kAutoConfigUrl))};
  }
};

}  // namespace

ProxySettings& RealProxySettings() {
  static NoDestructor<PosixProxySettings> settings;
  return *settings;
}

}  // namespace korvane::platform
