# Compiler options that every target of this project shares, and the switches that presets set.

set(KORVANE_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize takes them")
set(KORVANE_LANE "tests" CACHE STRING "What the names of this build's tests begin with")
option(KORVANE_FUZZ "Build the fuzzers (clang only)" OFF)
option(KORVANE_COVERAGE "Count the branches that a run takes (clang only)" OFF)

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
  set(CMAKE_C_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
endif()

add_library(korvane_options INTERFACE)
target_compile_options(korvane_options INTERFACE
  -Wall -Wextra -Wpedantic -Werror
  -Wshadow -Wconversion -Wsign-conversion -Wcast-qual
  -Wimplicit-fallthrough -Wreturn-type -Wunused
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Wold-style-cast -Woverloaded-virtual>)

if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # Lock order and guards are declared in the code (platform/mutex.h); a violation fails the build.
  target_compile_options(korvane_options INTERFACE -Wthread-safety -Wthread-safety-beta)
endif()

if(KORVANE_SANITIZE)
  target_compile_options(korvane_options INTERFACE
    -fsanitize=${KORVANE_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Under sanitizers GCC 12 warns of its own library's expressions.
    target_compile_options(korvane_options INTERFACE -Wno-maybe-uninitialized)
  endif()
  target_link_options(korvane_options INTERFACE -fsanitize=${KORVANE_SANITIZE})
endif()

if(KORVANE_COVERAGE)
  # Tests are counted as well: an inline function of a header may be taken from either's object.
  target_compile_options(korvane_options INTERFACE
    -fprofile-instr-generate -fcoverage-mapping -fprofile-update=atomic)
  target_link_options(korvane_options INTERFACE -fprofile-instr-generate)
endif()

if(WIN32)
  target_compile_definitions(korvane_options INTERFACE
    UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0A00)
else()
  find_package(Threads REQUIRED)
  target_link_libraries(korvane_options INTERFACE Threads::Threads ${CMAKE_DL_LIBS})
endif()
