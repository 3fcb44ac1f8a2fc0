# libqrx, shared (libqrx) and static (libqrx_static).  Neither needs the C++ runtime, so C programs can be linked
# by a C compiler.
set(qrx_map ${CMAKE_CURRENT_SOURCE_DIR}/api/qrx.map)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${qrx_map})
file(STRINGS ${qrx_map} qrx_functions REGEX "^ +qrx_[a-z0-9_]+;$")
list(TRANSFORM qrx_functions REPLACE "[ ;]" "")
set(qrx_functions ${qrx_functions} PARENT_SCOPE) # installing also needs them

set(qrx_objects $<TARGET_OBJECTS:quarnex_core> $<TARGET_OBJECTS:quarnex_api>)
add_library(libqrx SHARED ${qrx_objects})
add_library(libqrx_static STATIC ${qrx_objects})
add_library(qrx::qrx ALIAS libqrx)
add_library(qrx::qrx_static ALIAS libqrx_static)
foreach(library libqrx libqrx_static)
  add_dependencies(${library} quarnex_core quarnex_api)
  target_include_directories(${library} INTERFACE ${PROJECT_SOURCE_DIR}/include)
  set_target_properties(${library} PROPERTIES
    OUTPUT_NAME qrx LINKER_LANGUAGE CXX
    ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR} LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}
    RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
  target_link_libraries(${library} PRIVATE Divsufsort::Divsufsort ${QUARNEX_CHECKSUMS} Threads::Threads)
endforeach()

if(WIN32)
  # libqrx-0.dll: 0 is the version of the binary interface, as in libqrx.so.0.
  set(qrx_def ${CMAKE_CURRENT_BINARY_DIR}/qrx.def)
  list(JOIN qrx_functions "\n" exports)
  file(CONFIGURE OUTPUT ${qrx_def} CONTENT "EXPORTS\n@exports@\n" @ONLY)
  target_sources(libqrx PRIVATE ${qrx_def})
  set_target_properties(libqrx PROPERTIES RUNTIME_OUTPUT_NAME qrx-0)
else()
  # --as-needed drops the C++ runtime, which the compiler adds, as long as nothing uses it.
  target_link_options(libqrx PRIVATE -static-libgcc
    LINKER:--as-needed,-z,defs,--no-undefined-version,--version-script=${qrx_map})
  set_target_properties(libqrx PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION 0 LINK_DEPENDS ${qrx_map})
endif()
