# The Debian package, made by `cpack` from an optimised build.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT
  "The quarnex authors <quarnex@example.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "block-parallel file compressor")
set(CPACK_PACKAGE_DESCRIPTION
  "Compresses each input file to one .qrx file in a destination directory, and
restores such files. Files are divided into large blocks that are coded
independently on all processors. Five methods and ten levels range from fast
byte-aligned tokens to a binary range coder with optimal parsing.")

set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/debian_layout.cmake)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
include(CPack)
