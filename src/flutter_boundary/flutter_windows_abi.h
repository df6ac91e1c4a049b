/* flutter_windows_abi.h: the C interface of the interface engine's library, as far as the host
 * calls it.
 *
 * Plain C, so that the host, the stand-in library and the tests' fake share one declaration. Window
 * handles and message words are spelled as the integers and pointers that they are, because the
 * same interface is served by a shared library on Linux. Who defines the functions sets
 * KORVANE_FLUTTER_LIBRARY_EXPORTS; who calls them sets nothing.
 *
 * Unless a line says otherwise: platform thread (the window's thread) only, handles are never owned
 * by the reader, and null is none. No exception may pass in either direction.
 */
#pragma once

#ifdef __cplusplus
#include <cstddef>
#include <cstdint>
#else
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <wchar.h>
#endif

#if defined(_WIN32)
#if defined(KORVANE_FLUTTER_LIBRARY_EXPORTS)
#define KORVANE_FLUTTER_API __declspec(dllexport)
#else
#define KORVANE_FLUTTER_API __declspec(dllimport)
#endif
#else
#define KORVANE_FLUTTER_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct FlutterDesktopEngine* FlutterDesktopEngineRef;
typedef struct FlutterDesktopViewController* FlutterDesktopViewControllerRef;
typedef struct FlutterDesktopView* FlutterDesktopViewRef;
typedef struct FlutterDesktopMessenger* FlutterDesktopMessengerRef;
typedef struct FlutterDesktopPluginRegistrar* FlutterDesktopPluginRegistrarRef;
/* Opaque; always used through a pointer to const. */
typedef struct FlutterDesktopMessageResponse FlutterDesktopMessageResponseHandle;

/* A message from Dart. It lives, with all that it points at, until the callback returns; only the
 * response handle outlives it. A newer library may append fields: struct_size tells. */
typedef struct {
  size_t struct_size;
  const char* channel;
  const uint8_t* message; /* may be null when message_size is 0 */
  size_t message_size;
  const FlutterDesktopMessageResponseHandle* response_handle; /* null: Dart awaits no reply */
} FlutterDesktopMessage;

/* What an engine is created from. Zero the whole record first. */
typedef struct {
  const wchar_t* assets_path;
  const wchar_t* icu_data_path;
  const wchar_t* aot_library_path;
  const char* dart_entrypoint; /* null or empty: Dart's main */
  int dart_entrypoint_argc;
  const char** dart_entrypoint_argv; /* not looked at when the count is 0 */
  int32_t engine_words[3];
  int32_t impeller_mode;
  uint8_t engine_flag;
} FlutterDesktopEngineProperties;

#ifdef __cplusplus
static_assert(sizeof(FlutterDesktopMessage) == 40, "layout");
static_assert(offsetof(FlutterDesktopMessage, response_handle) == 32, "layout");
static_assert(sizeof(FlutterDesktopEngineProperties) == 72, "layout");
static_assert(offsetof(FlutterDesktopEngineProperties, dart_entrypoint_argv) == 40, "layout");
static_assert(offsetof(FlutterDesktopEngineProperties, impeller_mode) == 60, "layout");
static_assert(offsetof(FlutterDesktopEngineProperties, engine_flag) == 64, "layout");
#endif

typedef void (*FlutterDesktopVoidCallback)(void* user_data);
typedef void (*FlutterDesktopBinaryReply)(const uint8_t* data, size_t data_size, void* user_data);
typedef void (*FlutterDesktopMessageCallback)(FlutterDesktopMessengerRef messenger,
                                              const FlutterDesktopMessage* message,
                                              void* user_data);

/* Engine */

/* The record and the arguments are copied. The caller owns the handle until a view controller takes
 * it over; the engine isn't started yet. */
KORVANE_FLUTTER_API FlutterDesktopEngineRef
FlutterDesktopEngineCreate(const FlutterDesktopEngineProperties* properties);
/* The handle is dead whatever is returned. Never for an engine that a view controller took over. */
KORVANE_FLUTTER_API bool FlutterDesktopEngineDestroy(FlutterDesktopEngineRef engine);
/* A borrowed handle, not to be released. */
KORVANE_FLUTTER_API FlutterDesktopMessengerRef
FlutterDesktopEngineGetMessenger(FlutterDesktopEngineRef engine);
KORVANE_FLUTTER_API FlutterDesktopPluginRegistrarRef
FlutterDesktopEngineGetPluginRegistrar(FlutterDesktopEngineRef engine, const char* plugin_name);
KORVANE_FLUTTER_API void FlutterDesktopEngineReloadSystemFonts(FlutterDesktopEngineRef engine);
/* Runs once, on the platform thread, after the next frame was drawn. One at a time. */
KORVANE_FLUTTER_API void FlutterDesktopEngineSetNextFrameCallback(
    FlutterDesktopEngineRef engine, FlutterDesktopVoidCallback callback, void* user_data);
/* True and an IDXGIAdapter that the caller releases, or false. Set *adapter to null before, and
 * release whatever stands in it afterwards, also after false. */
KORVANE_FLUTTER_API bool FlutterDesktopEngineGetGraphicsAdapter(FlutterDesktopEngineRef engine,
                                                                void** adapter);

/* View controller and view */

/* Takes the engine over at the call: when null comes back, the engine has been destroyed already.
 */
KORVANE_FLUTTER_API FlutterDesktopViewControllerRef
FlutterDesktopViewControllerCreate(int width, int height, FlutterDesktopEngineRef engine);
/* Ends the view and the engine. */
KORVANE_FLUTTER_API void FlutterDesktopViewControllerDestroy(
    FlutterDesktopViewControllerRef controller);
/* Belongs to the controller. */
KORVANE_FLUTTER_API FlutterDesktopViewRef
FlutterDesktopViewControllerGetView(FlutterDesktopViewControllerRef controller);
KORVANE_FLUTTER_API void FlutterDesktopViewControllerForceRedraw(
    FlutterDesktopViewControllerRef controller);
/* HWND, UINT, WPARAM, LPARAM, LRESULT*; the result is written only when true is returned. */
KORVANE_FLUTTER_API bool FlutterDesktopViewControllerHandleTopLevelWindowProc(
    FlutterDesktopViewControllerRef controller, void* window, uint32_t message, uintptr_t wparam,
    intptr_t lparam, intptr_t* result);
/* The view's HWND. */
KORVANE_FLUTTER_API void* FlutterDesktopViewGetHWND(FlutterDesktopViewRef view);

/* Messenger. AddRef, Release, Lock and Unlock: any thread. The others, off the platform thread,
 * belong between Lock and Unlock and behind an IsAvailable that said true. Don't nest the lock. */

/* False: the message wasn't taken. */
KORVANE_FLUTTER_API bool FlutterDesktopMessengerSend(FlutterDesktopMessengerRef messenger,
                                                     const char* channel, const uint8_t* message,
                                                     size_t message_size);
/* False: the reply will not run, and user_data is still the caller's. */
KORVANE_FLUTTER_API bool FlutterDesktopMessengerSendWithReply(
    FlutterDesktopMessengerRef messenger, const char* channel, const uint8_t* message,
    size_t message_size, FlutterDesktopBinaryReply reply, void* user_data);
/* Exactly once for each response handle, which is dead afterwards. Length 0 is the empty reply. */
KORVANE_FLUTTER_API void FlutterDesktopMessengerSendResponse(
    FlutterDesktopMessengerRef messenger, const FlutterDesktopMessageResponseHandle* handle,
    const uint8_t* data, size_t data_length);
/* Replaces the receiver of a channel; a null callback removes it. */
KORVANE_FLUTTER_API void FlutterDesktopMessengerSetCallback(FlutterDesktopMessengerRef messenger,
                                                            const char* channel,
                                                            FlutterDesktopMessageCallback callback,
                                                            void* user_data);
/* Gives back its argument. A counted handle outlives the engine. */
KORVANE_FLUTTER_API FlutterDesktopMessengerRef
FlutterDesktopMessengerAddRef(FlutterDesktopMessengerRef messenger);
KORVANE_FLUTTER_API void FlutterDesktopMessengerRelease(FlutterDesktopMessengerRef messenger);
KORVANE_FLUTTER_API bool FlutterDesktopMessengerIsAvailable(FlutterDesktopMessengerRef messenger);
/* Gives back its argument. The engine can't end between the two. */
KORVANE_FLUTTER_API FlutterDesktopMessengerRef
FlutterDesktopMessengerLock(FlutterDesktopMessengerRef messenger);
KORVANE_FLUTTER_API void FlutterDesktopMessengerUnlock(FlutterDesktopMessengerRef messenger);

/* Freestanding */

/* HMONITOR; 96 where the system can't tell. */
KORVANE_FLUTTER_API uint32_t FlutterDesktopGetDpiForMonitor(void* monitor);
/* Reopens the standard streams in the library's own C runtime, after a console was opened. */
KORVANE_FLUTTER_API void FlutterDesktopResyncOutputStreams(void);

#ifdef __cplusplus
}
#endif
