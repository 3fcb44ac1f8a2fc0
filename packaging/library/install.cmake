# Installation rules of the library.  Programs that use it need component `runtime` to run and `development`
# to build.
include(CMakePackageConfigHelpers)
set(made ${CMAKE_BINARY_DIR}/library)
file(MAKE_DIRECTORY ${made})

install(TARGETS libqrx
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
  RUNTIME COMPONENT runtime
  ARCHIVE COMPONENT development)
install(TARGETS libqrx_static COMPONENT development)
install(FILES include/qrx.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

# find_package(qrx)
set(cmake_package ${CMAKE_INSTALL_LIBDIR}/cmake/qrx)
set(includes ${CMAKE_INSTALL_INCLUDEDIR})
set(libraries ${CMAKE_INSTALL_LIBDIR})
set(static ${CMAKE_INSTALL_LIBDIR}/libqrx.a)
set(import ${CMAKE_INSTALL_LIBDIR}/libqrx.dll.a)
if(WIN32)
  set(shared ${CMAKE_INSTALL_BINDIR}/libqrx-0.dll)
else()
  set(shared ${CMAKE_INSTALL_LIBDIR}/libqrx.so.${PROJECT_VERSION})
endif()
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/qrxConfig.cmake.in ${made}/qrxConfig.cmake
  INSTALL_DESTINATION ${cmake_package} PATH_VARS includes libraries shared import static)
write_basic_package_version_file(${made}/qrxConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${made}/qrxConfig.cmake ${made}/qrxConfigVersion.cmake
  DESTINATION ${cmake_package} COMPONENT development)

# pkg-config: written at install time, when the prefix is known.  On Windows it is relative to the file.
set(prefix @prefix@)
foreach(variable libdir includedir)
  string(TOUPPER CMAKE_INSTALL_${variable} directory)
  # Both may be absolute; otherwise they are below the prefix.
  cmake_path(ABSOLUTE_PATH ${directory} BASE_DIRECTORY "\${prefix}" OUTPUT_VARIABLE ${variable})
endforeach()
configure_file(${CMAKE_CURRENT_LIST_DIR}/qrx.pc.in ${made}/qrx.pc.in @ONLY)
set(prefix \${CMAKE_INSTALL_PREFIX})
if(WIN32)
  set(prefix "\\\${pcfiledir}/../..")
endif()
install(CODE "set(prefix ${prefix})
  configure_file(\"${made}/qrx.pc.in\" \"${made}/qrx.pc\" @ONLY)" COMPONENT development)
install(FILES ${made}/qrx.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# One manual page, found by the name of each function.
if(NOT WIN32)
  install(FILES docs/man/qrx.h.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT development)
  foreach(function ${qrx_functions})
    file(CONFIGURE OUTPUT ${made}/man3/${function}.3 CONTENT ".so man3/qrx.h.3\n")
  endforeach()
  install(DIRECTORY ${made}/man3 DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT development)
endif()
