# Installation rules, also used for the packages.
include(GNUInstallDirs)

# Debian's zsh reads completions from packages in vendor-completions.
set(QUARNEX_ZSH_DIR zsh/site-functions CACHE STRING "Where zsh looks for completions, below share")

# install_completions(COMPONENT SOURCE DIRECTORY SUFFIX NAME OTHER...): installs completions as NAME, with links for
# the other names, since shells look up completions by command name.
function(install_completions component source directory suffix name)
  set(dest ${CMAKE_INSTALL_DATADIR}/${directory})
  install(FILES ${source} DESTINATION ${dest} COMPONENT ${component} RENAME ${name}${suffix})
  file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/completions)
  foreach(other ${ARGN})
    set(link ${CMAKE_BINARY_DIR}/completions/${other}${suffix})
    file(CREATE_LINK ${name}${suffix} ${link} SYMBOLIC)
    install(FILES ${link} DESTINATION ${dest} COMPONENT ${component})
  endforeach()
endfunction()

# install_program(COMPONENT NAME OTHER...): installs a program, its other names, manual pages and completions.
function(install_program component name)
  install(TARGETS ${name} RUNTIME COMPONENT ${component})
  foreach(other ${ARGN}) # created by the build: links to the program, or copies of it on Windows
    install(PROGRAMS ${CMAKE_BINARY_DIR}/${other}${CMAKE_EXECUTABLE_SUFFIX}
      DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ${component})
  endforeach()
  if(WIN32)
    return()
  endif()
  foreach(page ${name} ${ARGN})
    install(FILES docs/man/${page}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT ${component})
  endforeach()
  install_completions(${component} completions/${name}.bash bash-completion/completions "" ${name} ${ARGN})
  install_completions(${component} completions/${name}.fish fish/vendor_completions.d .fish ${name} ${ARGN})
  install(FILES completions/_${name} DESTINATION ${CMAKE_INSTALL_DATADIR}/${QUARNEX_ZSH_DIR}
    COMPONENT ${component})
endfunction()

install_program(tool qrx unqrx qrxcat)
install_program(program quarnex unquarnex)

install(FILES README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md LICENSE
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT tool)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT tool PATTERN docs/man EXCLUDE)
if(NOT WIN32)
  install(FILES packaging/magic/qrx DESTINATION ${CMAKE_INSTALL_DATADIR}/file/magic COMPONENT tool)
  install(FILES packaging/mime/qrx.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/mime/packages COMPONENT tool)
endif()

if(QUARNEX_LIBRARY)
  include(packaging/library/install.cmake)
endif()

# The Python package, not installed by default: each Python has its own directory for packages; this is
# Debian's.
set(QUARNEX_PYTHON_DIR lib/python3/dist-packages CACHE STRING "Where Python looks for packages")
install(DIRECTORY python/qrx DESTINATION ${QUARNEX_PYTHON_DIR} COMPONENT python EXCLUDE_FROM_ALL
  PATTERN __pycache__ EXCLUDE)
