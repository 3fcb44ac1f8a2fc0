# 32-bit Windows: with SSE2, which every Windows since 8 asks for, and all 4 GiB of addresses that a
# 64-bit Windows has for such programs
set(target_triple i686-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR i686)
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)
set(CMAKE_C_FLAGS_INIT "-msse2 -mfpmath=sse")
set(CMAKE_CXX_FLAGS_INIT "-msse2 -mfpmath=sse")
string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,--large-address-aware")
# The one of scripts/get_wine32, be it there yet or not: the system's may know 64-bit programs only.
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../../build/deps/wine32/wine)
