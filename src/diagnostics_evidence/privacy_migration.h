// privacy_migration.h: cleans evidence files that older builds wrote raw.
//
// A file that is clean is only read, so an archive costs one read from the second time on. A file
// that isn't is replaced by a commit: a crash leaves the raw file, which the next look migrates, or
// the clean one. A file that can't be cleaned may hold raw text, and its caller must hold it back.
//
// Time is linear in the file. Memory: a ".log" file is checked in blocks of lines, within a small
// multiple of 64 KiB and its longest line, which is all that a clean file ever takes; one that must
// be rewritten is held whole, since a commit takes its text in one write. A ".json" file is held
// whole, since its key is sought in the whole text.
//
// A line that decodes to bytes that are no UTF-8 is stored as those bytes, and the next run makes
// text of them; from then on it is clean.
//
// Callers hold the evidence mutex, but for the crash summary, which runs on the platform thread
// alone.
#pragma once

#include <string>

namespace korvane {

// True when the file is clean on disk, or is neither ".log" nor ".json". False is said on the error
// stream, without the path.
bool migrateEvidenceFile(const std::string& path);

// Redacts the value of each "close_error" in the text. False, with the text as it was, when one of
// them has no text value behind it.
bool migrateCloseErrors(std::string& text);

}  // namespace korvane
