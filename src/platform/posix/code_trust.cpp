#include "platform/code_trust.h"

#include <fcntl.h>

#include <cerrno>
#include <utility>

#include "platform/no_destructor.h"
#include "platform/posix/file_descriptor.h"
#include "platform/real_os.h"

namespace korvane::platform {

namespace {

class PosixHeldFile final : public HeldFile {
 public:
  explicit PosixHeldFile(FileDescriptor file) : file_(std::move(file)) {}

 private:
  FileDescriptor file_;
};

class PosixCodeTrust final : public CodeTrust {
 public:
  bool Available() override { return false; }

  Result<std::unique_ptr<HeldFile>> Hold(const std::filesystem::path& path) override {
    FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
      return Result<std::unique_ptr<HeldFile>>::Fail(static_cast<ErrorCode>(errno));
    }
    return std::unique_ptr<HeldFile>(std::make_unique<PosixHeldFile>(std::move(file)));
  }

  std::uint32_t VerifySignature(const std::filesystem::path& /*path*/,
                                const HeldFile& /*file*/) override {
    return 0;
  }

  SignerLookup FindSigner(const std::filesystem::path& /*path*/) override { return {}; }
};

}  // namespace

CodeTrust& RealCodeTrust() {
  static NoDestructor<PosixCodeTrust> trust;
  return *trust;
}

}  // namespace korvane::platform
