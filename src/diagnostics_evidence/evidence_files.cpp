#include "diagnostics_evidence/evidence_files.h"

#include "flutter_boundary/utf8.h"
#include "platform/os.h"

namespace korvane {

namespace {

using platform::os;

bool FailedWith(const char* what, const std::string& path, platform::ErrorCode error) {
  ReportEvidence(std::string(what) + path + " (error: " + std::to_string(error) + ")");
  return false;
}

bool RemoveChildren(const std::filesystem::path& folder) {
  const auto entries = os().files->List(folder);
  if (!entries) {
    return false;
  }
  bool removed = true;
  for (const platform::DirectoryEntry& entry : entries.value()) {
    removed = RemoveEvidenceTree(folder / entry.name) && removed;
  }
  return removed;
}

}  // namespace

void ReportEvidence(const std::string& text) {
  platform::WriteErrorLine(EnsureUtf8("[LibboxLogBuffer] " + text));
}

std::filesystem::path EvidencePath(const std::string& narrow) {
  const std::filesystem::path path = os().text->PathFromNarrow(narrow);
  // A separator at the end would make a question about a link one about what it leads to.
  return path.has_filename() ? path : path.parent_path();
}

bool writeFileDurable(const std::string& path, std::string_view bytes) {
  auto file = os().files->Open(EvidencePath(path), platform::OpenMode::kWriteExclusive);
  if (!file) {
    return FailedWith("Failed to create file: ", path, file.error());
  }
  const auto written = os().files->Write(file.value(), bytes);
  if (!written || written.value() != bytes.size()) {
    return FailedWith("Short/failed write: ", path, written ? 0 : written.error());
  }
  if (const auto flushed = os().files->Flush(file.value()); !flushed) {
    return FailedWith("Failed to flush: ", path, flushed.error());
  }
  static_cast<void>(os().files->Close(file.value()));
  return true;
}

bool commitFile(const std::string& path, std::string_view bytes) {
  const std::string sibling = path + ".tmp";
  if (!writeFileDurable(sibling, bytes)) {
    return false;
  }
  const auto renamed = os().files->Rename(EvidencePath(sibling), EvidencePath(path));
  if (!renamed) {
    ReportEvidence("Failed to commit " + path + ": " + os().text->ErrorMessage(renamed.error()));
    static_cast<void>(os().files->RemoveFile(EvidencePath(sibling)));
    return false;
  }
  return true;
}

bool readBounded(const std::string& path, std::size_t max_bytes, std::string& out,
                 bool* absent_out) {
  if (absent_out != nullptr) {
    *absent_out = false;
  }
  auto file = os().files->Open(EvidencePath(path), platform::OpenMode::kRead);
  if (!file) {
    const bool absent = os().files->IsNotFound(file.error());
    if (absent_out != nullptr) {
      *absent_out = absent;
    }
    if (!absent) {
      ReportEvidence("Failed to open for read: " + path);
    }
    return false;
  }
  std::string bytes;
  while (bytes.size() < max_bytes) {
    const auto chunk = os().files->Read(file.value(), max_bytes - bytes.size());
    if (!chunk) {
      ReportEvidence("Read error on: " + path);
      return false;
    }
    if (chunk.value().empty()) {
      break;
    }
    bytes += chunk.value();
  }
  out = std::move(bytes);
  return true;
}

bool EvidenceExists(const std::string& path) {
  const auto kind = os().files->Inspect(EvidencePath(path));
  return !kind || kind.value() != platform::EntryKind::kAbsent;
}

bool RemoveEvidenceFile(const std::string& path, platform::ErrorCode& error) {
  const auto removed = os().files->RemoveFile(EvidencePath(path));
  if (removed || os().files->IsNotFound(removed.error())) {
    return true;
  }
  error = removed.error();
  return false;
}

bool RemoveEvidenceTree(const std::filesystem::path& path) {
  const auto kind = os().files->Inspect(path);
  if (!kind) {
    return false;
  }
  switch (kind.value()) {
    case platform::EntryKind::kAbsent:
      return true;
    case platform::EntryKind::kReparsePoint:
      return false;
    case platform::EntryKind::kDirectory: {
      const bool emptied = RemoveChildren(path);
      return os().files->RemoveDirectory(path).ok() && emptied;
    }
    case platform::EntryKind::kFile:
    case platform::EntryKind::kOther:
      break;
  }
  const auto removed = os().files->RemoveFile(path);
  return removed || os().files->IsNotFound(removed.error());
}

}  // namespace korvane
