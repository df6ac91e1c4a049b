// evidence_time.h: the two forms of time in the evidence, both UTC from the wall clock.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace korvane {

// "2026-01-02T03:04:05Z": fields, journal lines, breadcrumbs.
std::string UtcTimestamp(std::int64_t unix_milliseconds);
// "20260102T030405Z": incident ids.
std::string CompactUtcTimestamp(std::int64_t unix_milliseconds);

// The same of the present moment.
std::string UtcNow();
std::string CompactUtcNow();

// Seconds since the Unix epoch of a compact time at the start of the text; nothing when there is
// none.
std::optional<std::int64_t> ParseCompactUtc(std::string_view text);

}  // namespace korvane
