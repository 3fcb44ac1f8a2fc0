# Installation rules, also used for the packages.
include(GNUInstallDirs)

install(TARGETS quarnex RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# Created by the build: a link to the program, or a copy of it on Windows.
install(PROGRAMS ${CMAKE_BINARY_DIR}/un$<TARGET_FILE_NAME:quarnex> DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} PATTERN docs/man EXCLUDE)

# Shells look up completions by command name, so the second name gets a link.
function(install_completions source directory suffix)
  set(link ${CMAKE_BINARY_DIR}/completions/unquarnex${suffix})
  file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/completions)
  file(CREATE_LINK quarnex${suffix} ${link} SYMBOLIC)
  install(FILES ${source} DESTINATION ${CMAKE_INSTALL_DATADIR}/${directory} RENAME quarnex${suffix})
  install(FILES ${link} DESTINATION ${CMAKE_INSTALL_DATADIR}/${directory})
endfunction()

if(NOT WIN32)
  install(FILES docs/man/quarnex.1 docs/man/unquarnex.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install_completions(completions/quarnex.bash bash-completion/completions "")
  install_completions(completions/quarnex.fish fish/vendor_completions.d .fish)
  install(FILES completions/_quarnex DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
endif()
