# Common part of the two Windows toolchains; the including file sets target_triple.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_C_COMPILER ${target_triple}-gcc-posix)
set(CMAKE_CXX_COMPILER ${target_triple}-g++-posix)
set(CMAKE_RC_COMPILER ${target_triple}-windres)
# Static, so that the program and the library need no DLLs of the compiler; without a build timestamp.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -Wl,--no-insert-timestamp")
set(CMAKE_SHARED_LINKER_FLAGS_INIT ${CMAKE_EXE_LINKER_FLAGS_INIT})

# Libraries built by scripts/build_deps take precedence over the distribution's.
set(CMAKE_FIND_ROOT_PATH ${CMAKE_CURRENT_LIST_DIR}/../../build/deps/${target_triple} /usr/${target_triple})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
