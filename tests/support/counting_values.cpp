#include "support/counted_subject.h"

namespace korvane::test {

using namespace platform;  // NOLINT: nearly every name below is one of its

namespace {

class CountingClocks final : public Counted<Clocks> {
 public:
  using Counted::Counted;

  std::int64_t SteadyNanoseconds() override {
    return Make(Effect::kLooks, "Clocks.SteadyNanoseconds", &Clocks::SteadyNanoseconds);
  }
  std::int64_t UnixMilliseconds() override {
    return Make(Effect::kLooks, "Clocks.UnixMilliseconds", &Clocks::UnixMilliseconds);
  }
  void SleepMilliseconds(std::uint32_t milliseconds) override {
    Make(Effect::kLooks, "Clocks.SleepMilliseconds", &Clocks::SleepMilliseconds, milliseconds);
  }
};

class CountingIdentifiers final : public Counted<Identifiers> {
 public:
  using Counted::Counted;

  Result<Guid> CreateGuid() override {
    return Make(Effect::kLooks, "Identifiers.CreateGuid", &Identifiers::CreateGuid);
  }
  std::optional<std::string> FormatGuid(const Guid& guid) override {
    return Make(Effect::kLooks, "Identifiers.FormatGuid", &Identifiers::FormatGuid, guid);
  }
  std::uint64_t PerformanceCounter() override {
    return Make(Effect::kLooks, "Identifiers.PerformanceCounter", &Identifiers::PerformanceCounter);
  }
};

class CountingTextEncoding final : public Counted<TextEncoding> {
 public:
  using Counted::Counted;

  std::string AnsiToUtf8(std::string_view text) override {
    return Make(Effect::kLooks, "TextEncoding.AnsiToUtf8", &TextEncoding::AnsiToUtf8, text);
  }
  std::optional<std::string> WideToUtf8(std::wstring_view text) override {
    return Make(Effect::kLooks, "TextEncoding.WideToUtf8", &TextEncoding::WideToUtf8, text);
  }
  std::string WideToUtf8Lossy(std::wstring_view text) override {
    return Make(Effect::kLooks, "TextEncoding.WideToUtf8Lossy", &TextEncoding::WideToUtf8Lossy,
                text);
  }
  std::optional<std::wstring> Utf8ToWide(std::string_view text) override {
    return Make(Effect::kLooks, "TextEncoding.Utf8ToWide", &TextEncoding::Utf8ToWide, text);
  }
  std::filesystem::path PathFromNarrow(std::string_view path) override {
    return Make(Effect::kLooks, "TextEncoding.PathFromNarrow", &TextEncoding::PathFromNarrow, path);
  }
  std::filesystem::path PathFromWide(std::wstring_view path) override {
    return Make(Effect::kLooks, "TextEncoding.PathFromWide", &TextEncoding::PathFromWide, path);
  }
  std::string NarrowFromPath(const std::filesystem::path& path) override {
    return Make(Effect::kLooks, "TextEncoding.NarrowFromPath", &TextEncoding::NarrowFromPath, path);
  }
  char PathSeparator() override {
    return Make(Effect::kLooks, "TextEncoding.PathSeparator", &TextEncoding::PathSeparator);
  }
  std::string ErrorMessage(ErrorCode error) override {
    return Make(Effect::kLooks, "TextEncoding.ErrorMessage", &TextEncoding::ErrorMessage, error);
  }
};

class CountingErrorStream final : public Counted<ErrorStream> {
 public:
  using Counted::Counted;

  void WriteLine(std::string_view utf8) override {
    Make(Effect::kLooks, "ErrorStream.WriteLine", &ErrorStream::WriteLine, utf8);
  }
  Status SilenceStandardError() override {
    return Make(Effect::kLooks, "ErrorStream.SilenceStandardError",
                &ErrorStream::SilenceStandardError);
  }
  void WriteToDebugger(std::string_view utf8) override {
    Make(Effect::kLooks, "ErrorStream.WriteToDebugger", &ErrorStream::WriteToDebugger, utf8);
  }
};

}  // namespace

std::unique_ptr<Clocks> Count(Clocks& inner, OperationCounter& counter) {
  return std::make_unique<CountingClocks>(inner, counter);
}

std::unique_ptr<Identifiers> Count(Identifiers& inner, OperationCounter& counter) {
  return std::make_unique<CountingIdentifiers>(inner, counter);
}

std::unique_ptr<TextEncoding> Count(TextEncoding& inner, OperationCounter& counter) {
  return std::make_unique<CountingTextEncoding>(inner, counter);
}

std::unique_ptr<ErrorStream> Count(ErrorStream& inner, OperationCounter& counter) {
  return std::make_unique<CountingErrorStream>(inner, counter);
}

}  // namespace korvane::test
