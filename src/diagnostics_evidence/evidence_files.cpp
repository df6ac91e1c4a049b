#include "diagnostics_evidence/evidence_files.h"

#include <utility>

#include "flutter_boundary/utf8.h"
#include "platform/os.h"

namespace korvane {

namespace {

using platform::os;

bool FailedWith(const char* what, const std::string& path, platform::ErrorCode error) {
  ReportEvidence(std::string(what) + path + " (error: " + std::to_string(error) + ")");
  return false;
}

// Removes a folder tree and keeps the first failure; see RemoveEvidenceTree.
class TreeRemoval {
 public:
  void Remove(const std::filesystem::path& path) {
    const auto kind = os().files->Inspect(path);
    if (!kind) {
      Failed(EvidenceErrorText(kind.error()));
      return;
    }
    switch (kind.value()) {  // coverage: every kind has its case
      case platform::EntryKind::kAbsent:
        return;
      case platform::EntryKind::kReparsePoint:
        Failed("a link is left alone");
        return;
      case platform::EntryKind::kDirectory:
        RemoveFolder(path);
        return;
      case platform::EntryKind::kFile:
      case platform::EntryKind::kOther:  // coverage: a device; folders have none
        Check(os().files->RemoveFile(path));
        return;
    }
  }

  [[nodiscard]] bool failed() const { return failed_; }
  [[nodiscard]] const std::string& first_failure() const { return first_failure_; }

 private:
  void RemoveFolder(const std::filesystem::path& folder) {
    const auto entries = os().files->List(folder);
    if (entries) {
      for (const platform::DirectoryEntry& entry : entries.value()) {
        Remove(folder / entry.name);
      }
    } else {
      Failed(EvidenceErrorText(entries.error()));
    }
    Check(os().files->RemoveDirectory(folder));
  }

  void Check(const platform::Status& removed) {
    if (!removed && !os().files->IsNotFound(removed.error())) {
      Failed(EvidenceErrorText(removed.error()));
    }
  }

  void Failed(std::string why) {
    if (!std::exchange(failed_, true)) {
      first_failure_ = std::move(why);
    }
  }

  bool failed_ = false;
  std::string first_failure_;
};

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
    // The path is in the process code page, the system's words are UTF-8.
    ReportEvidence("Failed to commit " + EnsureUtf8(path) + ": " +
                   EvidenceErrorText(renamed.error()));
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

bool RemoveEvidenceTree(const std::filesystem::path& path, std::string* first_failure) {
  TreeRemoval removal;
  removal.Remove(path);
  if (first_failure != nullptr) {
    *first_failure = removal.first_failure();
  }
  return !removal.failed();
}

bool ReadLastLines(const std::string& path, std::size_t count, std::deque<std::string>& lines) {
  auto file = os().files->Open(EvidencePath(path), platform::OpenMode::kRead);
  if (!file) {
    return false;
  }
  std::string line;
  const auto keep = [&] {
    if (!line.empty()) {
      lines.push_back(std::exchange(line, {}));
    }
    if (lines.size() > count) {
      lines.pop_front();
    }
  };
  constexpr std::uint64_t kChunkBytes = 65'536;
  for (auto chunk = os().files->Read(file.value(), kChunkBytes); chunk && !chunk.value().empty();
       chunk = os().files->Read(file.value(), kChunkBytes)) {
    for (const char c : chunk.value()) {
      if (c == '\n') {
        keep();
      } else {
        line += c;
      }
    }
  }
  keep();
  return true;
}

FolderFiles ListFolderFiles(const std::string& folder) {
  FolderFiles files;
  const std::filesystem::path path = EvidencePath(folder);
  const auto entries = os().files->List(path);
  if (!entries) {
    files.listing_error = EvidenceErrorText(entries.error());
    return files;
  }
  for (const platform::DirectoryEntry& entry : entries.value()) {
    const auto kind = os().files->Inspect(path / entry.name);
    if (!kind) {
      files.entry_error = EvidenceErrorText(kind.error());
    } else if (kind.value() == platform::EntryKind::kFile) {
      files.names.push_back(os().text->NarrowFromPath(entry.name));
    }
  }
  return files;
}

std::string EvidenceErrorText(platform::ErrorCode error) {
  const std::string text = os().text->ErrorMessage(error);
  // coverage: only Windows has numbers without words
  return text.empty() ? "error " + std::to_string(error) : text;
}

}  // namespace korvane
