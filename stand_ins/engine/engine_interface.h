// engine_interface.h: the seven C functions of the engine library, as the host binds them by name.
//
// No exception leaves a function unless the library was told to let one out (README.md). Strings
// are zero-terminated UTF-8; those that are returned belong to the caller, who frees them with
// singbox_free_string. Any thread.
#pragma once

#include <cstdint>

extern "C" {

// Reads a configuration and makes a service of it, which doesn't run yet. Zero when the text can't
// be used; singbox_get_last_error tells why. An identifier is never used twice.
KORVANE_ENGINE_EXPORT std::uint64_t singbox_new_service(const char* configuration);

// Opens the service's ports; 0 when it runs. With any other value nothing of it is open, and the
// service is still there and has to be closed.
KORVANE_ENGINE_EXPORT std::int32_t singbox_start_service(std::uint64_t id);

// Ends the service's threads, closes its sockets and forgets it; 0 when that is done.
KORVANE_ENGINE_EXPORT std::int32_t singbox_close_service(std::uint64_t id);

KORVANE_ENGINE_EXPORT char* singbox_get_version();

// The most recent failure of this process, whichever thread it was on; null when there was none.
KORVANE_ENGINE_EXPORT char* singbox_get_last_error();

// Null is taken too.
KORVANE_ENGINE_EXPORT void singbox_free_string(char* text);

// Where a crash is to be written; the empty text for nowhere. 0 when the file could be opened.
KORVANE_ENGINE_EXPORT std::int32_t singbox_set_crash_output(const char* path);
}
