# Finds libdeflate and defines the target Deflate::Deflate.
include(${CMAKE_CURRENT_LIST_DIR}/find_library_target.cmake)
find_library_target(Deflate libdeflate.h deflate)
