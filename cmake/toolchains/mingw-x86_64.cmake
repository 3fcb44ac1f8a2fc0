# 64-bit Windows
set(target_triple x86_64-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)
find_program(CMAKE_CROSSCOMPILING_EMULATOR wine)
