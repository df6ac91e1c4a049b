// plugin.cpp: a plug-in library that does nothing but know its registrar.
//
// It tells the interface stand-in, where that is loaded, that it was called and with which
// registrar. It is linked to nothing: the real libraries find theirs among the process's modules as
// well.
#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

#if defined(_WIN32)
#define KORVANE_PLUGIN_API extern "C" __declspec(dllexport)
#else
#define KORVANE_PLUGIN_API extern "C" __attribute__((visibility("default")))
#endif

namespace {

using Registered = void (*)(void* registrar, const char* plugin);

Registered FindStandIn() {
#if defined(_WIN32)
  const HMODULE library = GetModuleHandleW(L"flutter_windows.dll");
  if (library == nullptr) {
    return nullptr;
  }
  return reinterpret_cast<Registered>(
      reinterpret_cast<void*>(GetProcAddress(library, "KorvaneStandInPluginRegistered")));
#else
  return reinterpret_cast<Registered>(dlsym(RTLD_DEFAULT, "KorvaneStandInPluginRegistered"));
#endif
}

}  // namespace

KORVANE_PLUGIN_API void KORVANE_PLUGIN_FUNCTION(void* registrar) {
  if (const auto registered = FindStandIn()) {
    registered(registrar, KORVANE_PLUGIN_NAME);
  }
}
