// common/vector_instructions.h - 256-bit vectors for hot loops, selected at run time
//
// x86 processors with AVX2 process eight numbers of 32 bits at once, twice as many as with SSE2.  A
// hot loop is an always-inlined function that is compiled twice: for the compiler's target, and in
// a function marked QUARNEX_AVX2.  It is dispatched by has_avx2().
#pragma once

#include "common/types.h"

namespace quarnex {

#if defined(__x86_64__)

/// Marks a function that may use AVX2, with everything inlined into it.
#define QUARNEX_AVX2 [[gnu::target("avx2")]]

/// True if processor and system support AVX2.
inline bool has_avx2()
{
    return __builtin_cpu_supports("avx2");
}

#else // elsewhere the compiler's target settles it

#define QUARNEX_AVX2
constexpr bool has_avx2()
{
    return false;
}

#endif

} // namespace quarnex
