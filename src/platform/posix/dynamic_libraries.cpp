#include "platform/dynamic_libraries.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <cstring>
#include <fstream>

#include "platform/no_destructor.h"
#include "platform/posix/crash_guard.h"
#include "platform/real_os.h"

namespace korvane::platform {

namespace {

constexpr ErrorCode kErrorModuleNotFound = 126;  // the library, or one that it needs
constexpr ErrorCode kErrorNoLibrary = 193;

bool LooksLikeLibrary(std::ifstream& file) {
  ElfW(Ehdr) header{};
  file.read(reinterpret_cast<char*>(&header), sizeof(header));
  return file.gcount() == sizeof(header) &&
         std::memcmp(static_cast<const void*>(header.e_ident), ELFMAG, SELFMAG) == 0 &&
         header.e_type == ET_DYN;
}

// Why a load failed, in Windows' numbers: the loader itself only gives words.
ErrorCode LoadError(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    return kErrorModuleNotFound;
  }
  return LooksLikeLibrary(file) ? kErrorModuleNotFound : kErrorNoLibrary;
}

class PosixDynamicLibraries final : public DynamicLibraries {
 public:
  Status RestrictSearchPath() override { return Status::Ok(); }

  Result<ModuleHandle> Load(const std::filesystem::path& path) override {
    ModuleHandle module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    return module != nullptr ? Result<ModuleHandle>(module)
                             : Result<ModuleHandle>::Fail(LoadError(path));
  }

  void* Symbol(ModuleHandle module, const char* name) override { return dlsym(module, name); }

  bool CallGuarded(void (*function)(void* argument), void* argument) override {
    return CallWithCrashGuard(function, argument);
  }
};

}  // namespace

DynamicLibraries& RealDynamicLibraries() {
  static NoDestructor<PosixDynamicLibraries> libraries;
  return *libraries;
}

}  // namespace korvane::platform
