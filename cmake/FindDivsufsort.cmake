# Finds libdivsufsort (32-bit indexes) and defines the target Divsufsort::Divsufsort.
include(${CMAKE_CURRENT_LIST_DIR}/find_library_target.cmake)
find_library_target(Divsufsort divsufsort.h divsufsort)
