# Finds nlohmann-json, a header-only library, and defines the target nlohmann_json::nlohmann_json.
include(${CMAKE_CURRENT_LIST_DIR}/find_library_target.cmake)
find_library_target(nlohmann_json nlohmann/json.hpp)
