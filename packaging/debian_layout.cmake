# Run by CPack: arranges the files of a package as Debian's policy requires.
set(share ${CPACK_TEMPORARY_DIRECTORY}/usr/share)
set(doc ${share}/doc/${CPACK_PACKAGE_NAME})

# Debian's zsh reads completions from packages in vendor-completions.
file(RENAME ${share}/zsh/site-functions ${share}/zsh/vendor-completions)

# The license is in the copyright file.
file(REMOVE ${doc}/LICENSE)
file(COPY ${CMAKE_CURRENT_LIST_DIR}/copyright DESTINATION ${doc})
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${doc}/changelog
  "${CPACK_PACKAGE_NAME} (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium\n\n"
  "  * Version ${CPACK_PACKAGE_VERSION}.\n\n"
  " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")

file(GLOB packed ${doc}/changelog ${share}/man/man1/*)
execute_process(COMMAND gzip -9n ${packed} COMMAND_ERROR_IS_FATAL ANY)
