#include "platform/dynamic_libraries.h"

#include <windows.h>

#include <bit>

#include "platform/no_destructor.h"
#include "platform/real_os.h"
#include "platform/windows/crash_guard.h"

namespace korvane::platform {

namespace {

class WindowsDynamicLibraries final : public DynamicLibraries {
 public:
  Status RestrictSearchPath() override {
    constexpr DWORD kFolders = LOAD_LIBRARY_SEARCH_APPLICATION_DIR | LOAD_LIBRARY_SEARCH_USER_DIRS |
                               LOAD_LIBRARY_SEARCH_SYSTEM32;
    static_assert(kFolders == 0x0E00);
    return ::SetDefaultDllDirectories(kFolders) != 0 ? Status::Ok()
                                                     : Status::Fail(::GetLastError());
  }

  Result<ModuleHandle> Load(const std::filesystem::path& path) override {
    static_assert(LOAD_LIBRARY_SEARCH_APPLICATION_DIR == 0x200);
    const HMODULE module =
        ::LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_SEARCH_APPLICATION_DIR);
    return module != nullptr ? Result<ModuleHandle>(ModuleHandle{module})
                             : Result<ModuleHandle>::Fail(::GetLastError());
  }

  void* Symbol(ModuleHandle module, const char* name) override {
    return std::bit_cast<void*>(::GetProcAddress(static_cast<HMODULE>(module), name));
  }

  bool CallGuarded(void (*function)(void* argument), void* argument) override {
    return CallWithCrashGuard(function, argument);
  }
};

}  // namespace

DynamicLibraries& RealDynamicLibraries() {
  static NoDestructor<WindowsDynamicLibraries> libraries;
  return *libraries;
}

}  // namespace korvane::platform
