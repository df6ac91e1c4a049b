#include "diagnostics_evidence/evidence_time.h"

#include <array>
#include <chrono>
#include <cstdio>

#include "platform/os.h"

namespace korvane {

namespace {

std::string Format(std::int64_t unix_milliseconds, const char* format) {
  using namespace std::chrono;
  const sys_seconds time = floor<seconds>(sys_time<milliseconds>(milliseconds(unix_milliseconds)));
  const sys_days day = floor<days>(time);
  const year_month_day date(day);
  const hh_mm_ss clock(time - day);
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), format, static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
  return text.data();
}

// The number in `count` digits at the place; nothing when one of them is none.
std::optional<int> Digits(std::string_view text, std::size_t place, std::size_t count) {
  int number = 0;
  for (std::size_t i = place; i < place + count; ++i) {
    if (i >= text.size() || text[i] < '0' || text[i] > '9') {
      return std::nullopt;
    }
    number = number * 10 + (text[i] - '0');
  }
  return number;
}

}  // namespace

std::string UtcTimestamp(std::int64_t unix_milliseconds) {
  return Format(unix_milliseconds, "%04d-%02u-%02uT%02d:%02d:%02dZ");
}

std::string CompactUtcTimestamp(std::int64_t unix_milliseconds) {
  return Format(unix_milliseconds, "%04d%02u%02uT%02d%02d%02dZ");
}

std::string UtcNow() { return UtcTimestamp(platform::os().clocks->UnixMilliseconds()); }

std::string CompactUtcNow() {
  return CompactUtcTimestamp(platform::os().clocks->UnixMilliseconds());
}

std::optional<std::int64_t> ParseCompactUtc(std::string_view text) {
  using namespace std::chrono;
  const auto y = Digits(text, 0, 4);
  const auto mo = Digits(text, 4, 2);
  const auto d = Digits(text, 6, 2);
  const auto h = Digits(text, 9, 2);
  const auto mi = Digits(text, 11, 2);
  const auto s = Digits(text, 13, 2);
  if (!y || !mo || !d || !h || !mi || !s || text[8] != 'T' || text.size() < 16 || text[15] != 'Z') {
    return std::nullopt;
  }
  const year_month_day date(year(*y), month(static_cast<unsigned>(*mo)),
                            day(static_cast<unsigned>(*d)));
  // A minute may end in a leap second.
  if (!date.ok() || *h > 23 || *mi > 59 || *s > 60) {
    return std::nullopt;
  }
  return (sys_days(date) + hours(*h) + minutes(*mi) + seconds(*s)).time_since_epoch().count();
}

}  // namespace korvane
