# The Debian package, which `cpack` makes of an optimised build.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT
  "Seed 7d0edf25 maintainers <maintainers@users.noreply.c-seed-7d0edf25.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "block-parallel file compressor")
set(CPACK_PACKAGE_DESCRIPTION
  "Turns each input file into one .qrx file in a destination directory, and
back. Files are cut into large blocks that are coded independently, on all
processors. Five methods and ten levels reach from a fast byte-aligned code
to a binary range coder over a priced search for matches.")

set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/debian_layout.cmake)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
include(CPack)
