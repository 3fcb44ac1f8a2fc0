# What the two Windows targets have in common; `target_triple` is set by the file that includes this.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_C_COMPILER ${target_triple}-gcc-posix)
set(CMAKE_CXX_COMPILER ${target_triple}-g++-posix)
set(CMAKE_RC_COMPILER ${target_triple}-windres)
# One file that runs anywhere: nothing of the compiler's libraries is loaded at run time.
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)

# What scripts/build_deps has built stands before what the distribution offers.
set(CMAKE_FIND_ROOT_PATH ${CMAKE_CURRENT_LIST_DIR}/../../build/deps/${target_triple} /usr/${target_triple})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
