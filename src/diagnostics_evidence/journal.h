// journal.h: the archive's own log, which outlives the incidents that it tells of.
//
//   incidents/retention.log              one line per event, a UTC time in front; bounded by lines
//   incidents/retention_eviction_total   evictions since the archive began: a decimal number and a
//                                        line feed
//   incidents/journal_write_failed       the last line that the journal lost; overwritten, never
//                                        removed
//
// The counter is truncated and written, not committed: a crash in between leaves it empty, which
// counts as 0. Callers hold the evidence mutex.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "diagnostics_evidence/evidence_state.h"

namespace korvane {

std::string JournalPath(const EvidenceState& state);

// Appends a line that already has its time in front. A line that is lost is lost.
void AppendToJournal(const EvidenceState& state, const std::string& line);

// Appends the line with the present time in front. A line that can't be written goes to the fault
// file, without the time.
void journalLine(const EvidenceState& state, const std::string& line);

// The last max_lines lines as UTF-8, oldest first; on top of them a line about a journal fault.
// Empty while capture is off.
std::vector<std::string> RecentJournalLines(const EvidenceState& state, std::size_t max_lines);

// Evictions since the archive began; 0 while capture is off or when the file tells no number.
std::int64_t EvictionTotal(const EvidenceState& state);
void CountEviction(const EvidenceState& state);

}  // namespace korvane
