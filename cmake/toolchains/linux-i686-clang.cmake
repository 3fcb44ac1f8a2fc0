# 32-bit Linux, built by Clang for processors without vector instructions, to fuzz the portable code
include(${CMAKE_CURRENT_LIST_DIR}/linux-i686.cmake)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_CXX_FLAGS_INIT "-m32 -march=i686")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-rtlib=compiler-rt") # 64-bit multiplication with overflow checks
