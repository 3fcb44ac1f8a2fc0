# Installation rules, also used for the packages.
include(GNUInstallDirs)

install(TARGETS quarnex RUNTIME COMPONENT program)
# Created by the build: a link to the program, or a copy of it on Windows.
install(PROGRAMS ${CMAKE_BINARY_DIR}/un$<TARGET_FILE_NAME:quarnex>
  DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT program)
install(FILES README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md LICENSE
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT program)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT program PATTERN docs/man EXCLUDE)

# Shells look up completions by command name, so the second name gets a link.
function(install_completions source directory suffix)
  set(link ${CMAKE_BINARY_DIR}/completions/unquarnex${suffix})
  file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/completions)
  file(CREATE_LINK quarnex${suffix} ${link} SYMBOLIC)
  set(dest ${CMAKE_INSTALL_DATADIR}/${directory})
  install(FILES ${source} DESTINATION ${dest} COMPONENT program RENAME quarnex${suffix})
  install(FILES ${link} DESTINATION ${dest} COMPONENT program)
endfunction()

# Debian's zsh reads completions from packages in vendor-completions.
set(QUARNEX_ZSH_DIR zsh/site-functions CACHE STRING "Where zsh looks for completions, below share")
if(NOT WIN32)
  install(FILES docs/man/quarnex.1 docs/man/unquarnex.1
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT program)
  install_completions(completions/quarnex.bash bash-completion/completions "")
  install_completions(completions/quarnex.fish fish/vendor_completions.d .fish)
  install(FILES completions/_quarnex DESTINATION ${CMAKE_INSTALL_DATADIR}/${QUARNEX_ZSH_DIR}
    COMPONENT program)
endif()

if(QUARNEX_LIBRARY)
  include(packaging/library/install.cmake)
endif()

# The Python package, not installed by default: each Python has its own directory for packages; this is
# Debian's.
set(QUARNEX_PYTHON_DIR lib/python3/dist-packages CACHE STRING "Where Python looks for packages")
install(DIRECTORY python/qrx DESTINATION ${QUARNEX_PYTHON_DIR} COMPONENT python EXCLUDE_FROM_ALL
  PATTERN __pycache__ EXCLUDE)
