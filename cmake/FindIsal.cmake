# Finds ISA-L and defines the target Isal::Isal.
find_path(Isal_INCLUDE_DIR isa-l/crc.h)
find_library(Isal_LIBRARY isal)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Isal REQUIRED_VARS Isal_LIBRARY Isal_INCLUDE_DIR)
if(Isal_FOUND AND NOT TARGET Isal::Isal)
  add_library(Isal::Isal UNKNOWN IMPORTED)
  set_target_properties(Isal::Isal PROPERTIES
    IMPORTED_LOCATION "${Isal_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${Isal_INCLUDE_DIR}"
    INTERFACE_COMPILE_DEFINITIONS QUARNEX_ISAL)
endif()
mark_as_advanced(Isal_INCLUDE_DIR Isal_LIBRARY)
