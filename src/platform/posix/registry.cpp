// A hive is the file "registry_current_user" or "registry_local_machine" of user_text_file.h:
//
//   [Software\Korvane]
//   WindowsDiagnosticsEnabled=dword:00000001
//
// A key is a heading, a value a line below it: its name up to the first '=', then its type and its
// data, a number in hexadecimal. The case of ASCII letters makes no difference in keys and names.
// What is no number counts as a value of another type. The first of several like lines counts;
// every line that a change doesn't concern stays as it is.

#include "platform/registry.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <optional>
#include <string_view>

#include "platform/no_destructor.h"
#include "platform/posix/user_text_file.h"
#include "platform/real_os.h"

namespace korvane::platform {
namespace {

constexpr ErrorCode kUnsupportedType = 1630;  // ERROR_UNSUPPORTED_TYPE, as RegGetValueW gives it
constexpr std::string_view kDwordType = "dword:";

const char* FileOf(RegistryHive hive) {
  return hive == RegistryHive::kCurrentUser ? "registry_current_user" : "registry_local_machine";
}

// The names of one value, as the file has them.
struct ValueName {
  std::string key;
  std::string value;
};

// Nothing for a name that a line of the file can't hold.
std::optional<ValueName> NameOf(const std::wstring& key, const std::wstring& value) {
  std::optional<std::string> key_text = RealTextEncoding().WideToUtf8(key);
  std::optional<std::string> value_text = RealTextEncoding().WideToUtf8(value);
  if (!key_text || !value_text || !FitsInOneLine(*key_text) || !FitsInOneLine(*value_text) ||
      value_text->find('=') != std::string::npos || value_text->starts_with('[')) {
    return std::nullopt;
  }
  return ValueName{std::move(*key_text), std::move(*value_text)};
}

bool SameName(std::string_view left, std::string_view right) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [lower](char a, char b) { return lower(a) == lower(b); });
}

// The key that a heading names; nothing for any other line.
std::optional<std::string_view> KeyOf(std::string_view line) {
  return line.size() >= 2 && line.starts_with('[') && line.ends_with(']')
             ? std::optional(line.substr(1, line.size() - 2))
             : std::nullopt;
}

using Line = TextLines::iterator;

// The lines of a key, without its heading.
struct Section {
  Line begin;
  Line end;
};

std::optional<Section> FindKey(TextLines& lines, std::string_view key) {
  const Line heading = std::find_if(lines.begin(), lines.end(), [key](std::string_view line) {
    const auto named = KeyOf(line);
    return named && SameName(*named, key);
  });
  if (heading == lines.end()) {
    return std::nullopt;
  }
  const Line next = std::find_if(heading + 1, lines.end(),
                                 [](std::string_view line) { return KeyOf(line).has_value(); });
  return Section{heading + 1, next};
}

// The section's end when it has no such value.
Line FindValue(const Section& section, std::string_view value) {
  return std::find_if(section.begin, section.end, [value](std::string_view line) {
    const std::size_t equals = line.find('=');
    return equals != std::string_view::npos && SameName(line.substr(0, equals), value);
  });
}

Result<std::uint32_t> DwordOf(std::string_view line) {
  std::string_view data = line.substr(line.find('=') + 1);
  std::uint32_t number = 0;
  if (data.starts_with(kDwordType)) {
    data.remove_prefix(kDwordType.size());
    const char* const end = data.data() + data.size();
    const auto [rest, error] = std::from_chars(data.data(), end, number, 16);
    if (error == std::errc() && rest == end) {
      return number;
    }
  }
  return Result<std::uint32_t>::Fail(kUnsupportedType);
}

std::string LineOf(const std::string& value, std::uint32_t data) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string line = value + '=' + std::string(kDwordType);
  for (int shift = 28; shift >= 0; shift -= 4) {
    line += kDigits[data >> shift & 0xF];
  }
  return line;
}

void SetLine(TextLines& lines, const ValueName& name, const std::string& line) {
  const std::optional<Section> section = FindKey(lines, name.key);
  if (!section) {
    lines.push_back('[' + name.key + ']');
    lines.push_back(line);
    return;
  }
  if (const Line found = FindValue(*section, name.value); found != section->end) {
    *found = line;
  } else {
    lines.insert(section->end, line);
  }
}

class PosixRegistry final : public Registry {
 public:
  Result<std::uint32_t> ReadDword(RegistryHive hive, const std::wstring& key,
                                  const std::wstring& value) override {
    const std::optional<ValueName> name = NameOf(key, value);
    if (!name) {
      return Result<std::uint32_t>::Fail(kRegistryNotFound);
    }
    Result<TextLines> lines = ReadUserText(FileOf(hive));
    if (!lines) {
      return Result<std::uint32_t>::Fail(lines.error());
    }
    const std::optional<Section> section = FindKey(lines.value(), name->key);
    if (!section) {
      return Result<std::uint32_t>::Fail(kRegistryNotFound);
    }
    const Line found = FindValue(*section, name->value);
    return found != section->end ? DwordOf(*found) : Result<std::uint32_t>::Fail(kRegistryNotFound);
  }

  Status WriteDword(RegistryHive hive, const std::wstring& key, const std::wstring& value,
                    std::uint32_t data) override {
    const std::optional<ValueName> name = NameOf(key, value);
    if (!name) {
      return Status::Fail(EINVAL);
    }
    return ChangeUserText(FileOf(hive), [&name, data](TextLines& lines) {
      SetLine(lines, *name, LineOf(name->value, data));
      return Status::Ok();
    });
  }

  Status DeleteValue(RegistryHive hive, const std::wstring& key,
                     const std::wstring& value) override {
    const std::optional<ValueName> name = NameOf(key, value);
    if (!name) {
      return Status::Fail(kRegistryNotFound);
    }
    return ChangeUserText(FileOf(hive), [&name](TextLines& lines) {
      const std::optional<Section> section = FindKey(lines, name->key);
      const Line found = section ? FindValue(*section, name->value) : lines.end();
      if (!section || found == section->end) {
        return Status::Fail(kRegistryNotFound);
      }
      lines.erase(found);
      return Status::Ok();
    });
  }
};

}  // namespace

Registry& RealRegistry() {
  static NoDestructor<PosixRegistry> registry;
  return *registry;
}

}  // namespace korvane::platform
