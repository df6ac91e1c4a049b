// dynamic_libraries.h: loading a library by path, its exports, and calls that may crash.
#pragma once

#include <filesystem>

#include "platform/result.h"

namespace korvane::platform {

// A loaded library. Never unloaded: the engine's threads may live in it.
using ModuleHandle = void*;

class DynamicLibraries {
 public:
  virtual ~DynamicLibraries() = default;

  // SetDefaultDllDirectories(0x0E00): the application's folder, added folders, System32, and never
  // the working folder. Linux: the loader searches no working folder; always a success.
  virtual Status RestrictSearchPath() = 0;

  // LoadLibraryExW(path, nullptr, LOAD_LIBRARY_SEARCH_APPLICATION_DIR = 0x200). Linux: dlopen with
  // RTLD_NOW | RTLD_LOCAL; absent gives 126 (module not found) and what is no library 193, as
  // there.
  virtual Result<ModuleHandle> Load(const std::filesystem::path& path) = 0;

  // GetProcAddress, dlsym. Null when the library has no such export.
  virtual void* Symbol(ModuleHandle module, const char* name) = 0;

  // Calls function(argument) in a frame that survives a fault at machine level (access violation,
  // illegal instruction, division by zero, stack overflow, abort) and, since nothing may pass a C
  // boundary, any C++ exception. False when the call did not come to its end. What the function
  // held at that moment (locks, memory) stays as it was: for calls into closed code only, with
  // nothing of ours on the stack between. Windows: a structured exception handler that takes every
  // code; an abort is no exception there, and ends the process. Linux: signal handlers with a jump
  // out, for the calling thread.
  virtual bool CallGuarded(void (*function)(void* argument), void* argument) = 0;
};

}  // namespace korvane::platform
