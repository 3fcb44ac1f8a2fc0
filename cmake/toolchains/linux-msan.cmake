# Clang's memory sanitizer.  All code must be built with it; for libdivsufsort, scripts/build_deps does so.
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_FLAGS_INIT "-fsanitize=memory")
set(CMAKE_CXX_FLAGS_INIT "-fsanitize=memory")
set(CMAKE_PREFIX_PATH ${CMAKE_CURRENT_LIST_DIR}/../../build/deps/x86_64-linux-msan)
