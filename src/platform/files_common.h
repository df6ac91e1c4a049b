// files_common.h: what both sides of Files do alike. For the layer's own use.
#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/files.h"

namespace korvane::platform {

// Collects what read_some(buffer, size) gives until it gives nothing or max_bytes are there. The
// memory follows the content, not max_bytes; `out_of_memory` is the error when it runs out.
template <typename ReadSome>
Result<std::string> ReadUpTo(std::uint64_t max_bytes, ErrorCode out_of_memory, ReadSome read_some) {
  constexpr std::uint64_t kFirstStep = 64 * 1024;
  try {
    std::string bytes;
    while (bytes.size() < max_bytes) {
      const std::size_t have = bytes.size();
      const std::uint64_t step = std::max<std::uint64_t>(kFirstStep, have);
      const auto wanted = static_cast<std::size_t>(std::min(step, max_bytes - have));
      bytes.resize(have + wanted);
      const Result<std::size_t> got = read_some(bytes.data() + have, wanted);
      if (!got) {
        return Result<std::string>::Fail(got.error());
      }
      bytes.resize(have + got.value());
      if (got.value() == 0) {
        break;
      }
    }
    return bytes;
  } catch (const std::bad_alloc&) {  // a file may be larger than the memory
    return Result<std::string>::Fail(out_of_memory);
  } catch (const std::length_error&) {
    return Result<std::string>::Fail(out_of_memory);
  }
}

// Makes a folder with its missing levels. make_one(path) makes a single level: true when it did,
// false when the folder was there.
template <typename MakeOne>
Result<bool> MakeWithParents(Files& files, const std::filesystem::path& path, MakeOne make_one) {
  const std::filesystem::path folder = path.has_filename() ? path : path.parent_path();
  const Result<bool> made = make_one(folder);
  const std::filesystem::path parent = folder.parent_path();
  if (made || !files.IsNotFound(made.error()) || parent.empty() || parent == folder) {
    return made;
  }
  if (const Result<bool> above = MakeWithParents(files, parent, make_one); !above) {
    return above;
  }
  return make_one(folder);
}

}  // namespace korvane::platform
