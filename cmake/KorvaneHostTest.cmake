# korvane_host_test(NAME [DEPENDS target...])
#
# A native test program of all *.cpp beside the calling CMakeLists.txt that drives a host process.
# Each case is registered for the native host, and once more for the Windows host under Wine (label
# wine-scenarios) where -DKORVANE_WINDOWS_BUILD=FOLDER names a finished build of it.
set(KORVANE_WINDOWS_BUILD "" CACHE PATH "Build folder of the Windows host that tests drive under Wine")

function(korvane_host_test name)
  cmake_parse_arguments(arg "" "" "DEPENDS" ${ARGN})
  korvane_need_googletest()
  file(GLOB sources CONFIGURE_DEPENDS *.cpp *.h)
  add_executable(${name} ${sources})
  target_link_libraries(${name} PRIVATE ${arg_DEPENDS} gmock gtest_main korvane_options)
  target_include_directories(${name} PRIVATE "${CMAKE_SOURCE_DIR}/tests")
  include(GoogleTest)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120
                       TEST_PREFIX "${name}." PROPERTIES TIMEOUT 600 LABELS scenarios
                       # A host that closes its window leaves a running engine to the system.
                       ENVIRONMENT TSAN_OPTIONS=report_thread_leaks=0)
  if(KORVANE_WINDOWS_BUILD)
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120
                         TEST_PREFIX "wine.${name}." TEST_LIST ${name}_WINE_TESTS
                         PROPERTIES TIMEOUT 600 LABELS wine-scenarios
                         ENVIRONMENT KORVANE_HOST=windows)
  endif()
endfunction()
