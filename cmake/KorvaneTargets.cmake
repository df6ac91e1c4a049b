# The three kinds of target: a room of the house, a test program, a stand-in library.

# korvane_library(NAME [DEPENDS room...])
#
# One static library for the folder src/NAME. Its headers are reached as "NAME/header.h", and only
# by those that link the library: the include path of a room is a folder that holds nothing but a
# link to the room. An include that points upwards therefore doesn't compile.
function(korvane_library name)
  cmake_parse_arguments(arg "" "" "DEPENDS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS *.cpp *.h)
  if(WIN32)
    file(GLOB own CONFIGURE_DEPENDS windows/*.cpp windows/*.h)
  else()
    file(GLOB own CONFIGURE_DEPENDS posix/*.cpp posix/*.h)
  endif()
  list(FILTER own EXCLUDE REGEX "/main\\.cpp$") # the entry belongs to the program, not to a library
  add_library(korvane_${name} STATIC ${sources} ${own})
  set_target_properties(korvane_${name} PROPERTIES LINKER_LANGUAGE CXX)

  set(door "${CMAKE_BINARY_DIR}/include/${name}")
  file(MAKE_DIRECTORY "${door}")
  file(CREATE_LINK "${CMAKE_SOURCE_DIR}/src/${name}" "${door}/${name}" SYMBOLIC)
  target_include_directories(korvane_${name} PUBLIC "${door}")

  target_link_libraries(korvane_${name} PRIVATE korvane_options)
  # Debug builds optimise the program a little, since tests feed it megabytes.
  target_compile_options(korvane_${name} PRIVATE $<$<CONFIG:Debug>:-O1>)
  foreach(room ${arg_DEPENDS})
    target_link_libraries(korvane_${name} PUBLIC korvane_${room})
  endforeach()
endfunction()

# GoogleTest is built from Debian's source package, with our own flags, for every preset: the cross
# build has no other, and the sanitizer builds want it instrumented like the rest.
function(korvane_need_googletest)
  if(TARGET gtest_main)
    return()
  endif()
  set(GOOGLETEST_DIR "/usr/src/googletest" CACHE PATH "Source folder of the package googletest")
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  add_subdirectory("${GOOGLETEST_DIR}" "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL SYSTEM)
  if(KORVANE_SANITIZE)
    foreach(library gtest gtest_main gmock gmock_main)
      target_compile_options(${library} PRIVATE -fsanitize=${KORVANE_SANITIZE})
    endforeach()
  endif()
endfunction()

# korvane_test(NAME [DEPENDS target...] [SOURCES extra...] [LABELS label...] [LOCK resource]
#              [ENVIRONMENT NAME=VALUE])
#
# A test program of all *.cpp beside the calling CMakeLists.txt. CTest runs each test case in a
# process of its own, so process-wide state needs no door for a reset. LOCK names a resource of the
# machine (the registry, the proxy settings, a named window) that two cases can't use at once.
function(korvane_test name)
  cmake_parse_arguments(arg "" "LOCK;ENVIRONMENT" "DEPENDS;SOURCES;LABELS" ${ARGN})
  korvane_need_googletest()
  file(GLOB sources CONFIGURE_DEPENDS *.cpp *.h)
  add_executable(${name} ${sources} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_DEPENDS} gmock gtest_main korvane_options)
  target_include_directories(${name} PRIVATE "${CMAKE_SOURCE_DIR}/tests")
  # The cases aren't optimised in any build: they take long enough to compile.
  target_compile_options(${name} PRIVATE -O0)
  set(properties TIMEOUT 600)
  if(arg_LABELS)
    list(APPEND properties LABELS "${arg_LABELS}")
  endif()
  if(arg_LOCK)
    list(APPEND properties RESOURCE_LOCK "${arg_LOCK}")
  endif()
  if(arg_ENVIRONMENT)
    list(APPEND properties ENVIRONMENT "${arg_ENVIRONMENT}")
  endif()
  if(CMAKE_CROSSCOMPILING)
    list(APPEND properties FIXTURES_REQUIRED wine)
  endif()
  include(GoogleTest)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120
                       TEST_PREFIX "${KORVANE_LANE}.${name}." PROPERTIES ${properties})
endfunction()

# korvane_stand_in(NAME [SOURCES file...])
#
# A shared library that the host is linked to or loads: NAME.dll for Windows, libNAME.so here.
function(korvane_stand_in name)
  cmake_parse_arguments(arg "" "" "SOURCES;DEPENDS" ${ARGN})
  add_library(${name} SHARED ${arg_SOURCES})
  if(WIN32)
    set_target_properties(${name} PROPERTIES PREFIX "")
  else()
    # As on Windows, it calls its own functions where the program has the same ones.
    target_link_options(${name} PRIVATE -Wl,-Bsymbolic-functions)
  endif()
  set_target_properties(${name} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin"
    LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin"
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_link_libraries(${name} PRIVATE korvane_options ${arg_DEPENDS})
endfunction()
