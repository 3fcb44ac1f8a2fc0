// common/vector_instructions.h - 256-bit vectors for hot loops, selected at run time
//
// AVX2 processes eight 32-bit numbers at once, twice as many as SSE2.  A hot loop is an
// always-inline function that is compiled twice: into a plain function, for the compiler's target,
// and into one marked QUARNEX_AVX2.  has_avx2() tells which one to call.
#pragma once

#include "common/types.h"

namespace quarnex {

#if defined(__x86_64__)

/// Marks a function that is compiled for AVX2, with everything inlined into it.
#define QUARNEX_AVX2 [[gnu::target("avx2")]]

/// True if the processor and the system support AVX2.
inline bool has_avx2()
{
    return __builtin_cpu_supports("avx2");
}

#else // other processors: the compiler's target only

#define QUARNEX_AVX2
constexpr bool has_avx2()
{
    return false;
}

#endif

} // namespace quarnex
