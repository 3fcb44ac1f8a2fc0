# Finds ISA-L and defines the target Isal::Isal.
include(${CMAKE_CURRENT_LIST_DIR}/find_library_target.cmake)
find_library_target(Isal isa-l/crc.h isal)
