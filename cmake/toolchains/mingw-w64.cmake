# Cross build for 64-bit Windows with Debian's MinGW-w64, run under Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

execute_process(COMMAND ${CMAKE_C_COMPILER} -print-file-name=libkernel32.a
                OUTPUT_VARIABLE _kernel32 OUTPUT_STRIP_TRAILING_WHITESPACE)
get_filename_component(CMAKE_FIND_ROOT_PATH "${_kernel32}/../.." REALPATH)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(_kind LIBRARY INCLUDE PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${_kind} ONLY)
endforeach()

set(CMAKE_CROSSCOMPILING_EMULATOR
    ${CMAKE_COMMAND} -E env WINEPREFIX=${CMAKE_BINARY_DIR}/wine
    "${CMAKE_CURRENT_LIST_DIR}/../../scripts/lib/wine-run")

# The runtime is linked in: nothing but the system's own libraries may be imported.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
