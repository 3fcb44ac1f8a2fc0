# Finds CLI11, a header-only library, and defines the target CLI11::CLI11.
include(${CMAKE_CURRENT_LIST_DIR}/find_library_target.cmake)
find_library_target(CLI11 CLI/CLI.hpp)
