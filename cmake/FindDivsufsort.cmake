# Finds libdivsufsort (32-bit indexes) and defines the target Divsufsort::Divsufsort.
find_path(Divsufsort_INCLUDE_DIR divsufsort.h)
find_library(Divsufsort_LIBRARY divsufsort)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Divsufsort REQUIRED_VARS Divsufsort_LIBRARY Divsufsort_INCLUDE_DIR)
if(Divsufsort_FOUND AND NOT TARGET Divsufsort::Divsufsort)
  add_library(Divsufsort::Divsufsort UNKNOWN IMPORTED)
  set_target_properties(Divsufsort::Divsufsort PROPERTIES
    IMPORTED_LOCATION "${Divsufsort_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${Divsufsort_INCLUDE_DIR}")
endif()
mark_as_advanced(Divsufsort_INCLUDE_DIR Divsufsort_LIBRARY)
