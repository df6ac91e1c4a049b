// evidence_files.h: the file primitives on which the evidence rests.
//
// Paths are narrow, in the process code page; files are bytes. Nothing throws. What fails is said
// on the error stream behind "[LibboxLogBuffer] ". A commit leaves, when the process dies in its
// middle, the old file and perhaps a sibling with the suffix ".tmp"; whoever reads never looks at
// siblings.
#pragma once

#include <cstddef>
#include <deque>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files.h"

namespace korvane {

// Writes a line to the error stream behind "[LibboxLogBuffer] ".
void ReportEvidence(const std::string& text);

std::filesystem::path EvidencePath(const std::string& narrow);

// Creates or truncates the file for itself alone, writes everything in one write, flushes to disk.
// A short write or a failed flush gives false, and the file stays as far as it got.
bool writeFileDurable(const std::string& path, std::string_view bytes);

// The atomic form: writes path + ".tmp" durably and renames it over the path.
bool commitFile(const std::string& path, std::string_view bytes);

// Reads at most max_bytes from the start; a longer file is cut, and that is no error. On false,
// absent_out (may be null) tells a file that isn't there, silently, from one that can't be read.
bool readBounded(const std::string& path, std::size_t max_bytes, std::string& out,
                 bool* absent_out = nullptr);

// Whether anything stands at the path. A question that fails counts as yes, so that nothing is
// overwritten or lost on its account.
bool EvidenceExists(const std::string& path);

// Removes a file; true when it is gone or was never there. On false, `error` says why.
bool RemoveEvidenceFile(const std::string& path, platform::ErrorCode& error);

// Removes what stands at the path, with all that is in it. Links and other reparse points are left
// alone and count as failures; a failure never stops the walk. True when nothing is left; otherwise
// `first_failure` (may be null) says why the first thing stayed.
bool RemoveEvidenceTree(const std::filesystem::path& path, std::string* first_failure = nullptr);

// The last `count` non-empty lines of a file of any length, without their line feeds. False when it
// can't be opened; a read error ends the reading with what was read.
bool ReadLastLines(const std::string& path, std::size_t count, std::deque<std::string>& lines);

// The regular files of a folder, by name.
struct FolderFiles {
  std::vector<std::string> names;
  // Why the folder could not be listed; empty when it could. `names` is then empty.
  std::string listing_error;
  // Why an entry could not be told from a regular file; empty when all could.
  std::string entry_error;
};
FolderFiles ListFolderFiles(const std::string& folder);

// The system's message for an error, for the error stream and for notes.
std::string EvidenceErrorText(platform::ErrorCode error);

}  // namespace korvane
