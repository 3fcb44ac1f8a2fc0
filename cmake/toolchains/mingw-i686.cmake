# 32-bit Windows, with SSE2 (required since Windows 8) and the 4 GiB of address space that 64-bit Windows
# gives to large-address-aware programs
set(target_triple i686-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR i686)
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)
set(CMAKE_C_FLAGS_INIT "-msse2 -mfpmath=sse")
set(CMAKE_CXX_FLAGS_INIT "-msse2 -mfpmath=sse")
string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,--large-address-aware")
# Created by scripts/get_wine32, possibly later; the system's Wine may support only 64-bit programs.
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../../build/deps/wine32/wine)
