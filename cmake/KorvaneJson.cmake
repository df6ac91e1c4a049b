# nlohmann/json for tests and stand-ins (never for the program): Debian's header-only package. It is
# copied so that the cross build sees these headers alone and nothing else of the native system.
find_path(NLOHMANN_JSON_DIR nlohmann/json.hpp REQUIRED NO_CMAKE_FIND_ROOT_PATH)
file(COPY "${NLOHMANN_JSON_DIR}/nlohmann" DESTINATION "${CMAKE_BINARY_DIR}/third_party")
add_library(korvane_json INTERFACE)
target_include_directories(korvane_json SYSTEM INTERFACE "${CMAKE_BINARY_DIR}/third_party")
