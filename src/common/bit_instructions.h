// common/bit_instructions.h - bit-field instructions for hot loops, selected at run time
//
// x86 processors with BMI and LZCNT extract and count bits in one instruction.  A hot function is a
// template over portable_bits or fast_bits.  It is compiled for both, the second time inlined into
// a function marked QUARNEX_BIT_INSTRUCTIONS, and dispatched by has_bit_instructions().
#pragma once

#include "common/types.h"

#include <bit>
#include <cassert>

namespace quarnex {

/// Optimisation barrier: forces `value` to be computed here rather than at its use.  For a value
/// whose latency the next step of a hot loop waits for.
[[gnu::always_inline]] inline u64 computed_here(u64 value)
{
    asm("" : "+r"(value));
    return value;
}

/// Position of a field of 1 to 31 bits in a machine word, in the forms that the functions below
/// take.
struct bit_field {
    constexpr bit_field(u32 lowest, u32 width)
        : mask((1U << width) - 1), control(static_cast<u16>(lowest | width << 8)),
          shift(static_cast<u8>(lowest))
    {
        assert(width >= 1 && width <= 31 && lowest < 64);
    }

    u32 mask;    // of the field, shifted to bit 0
    u16 control; // the operand of `bextr`
    u8 shift;
};

/// For any processor.
struct portable_bits {
    [[gnu::always_inline]] static usize extract(usize word, const bit_field& field)
    {
        return word >> field.shift & field.mask;
    }
    /// Number of leading zero bits; 64 for 0.
    [[gnu::always_inline]] static usize leading_zeros(u64 word)
    {
        return static_cast<usize>(std::countl_zero(word));
    }
};

#if defined(__x86_64__)

/// For the x86 extensions BMI, BMI2 and LZCNT.  (Compiler intrinsics cannot be inlined into a
/// template without the target attribute.)
struct fast_bits {
    [[gnu::always_inline]] static usize extract(usize word, const bit_field& field)
    {
        usize bits;
        asm("bextrq %2, %1, %0" : "=r"(bits) : "r"(word), "r"(u64{field.control}) : "cc");
        return bits;
    }
    [[gnu::always_inline]] static usize leading_zeros(u64 word)
    {
        usize zeros;
        asm("lzcntq %1, %0" : "=r"(zeros) : "r"(word) : "cc");
        return zeros;
    }
};

/// Marks a function that may use these instructions, with everything inlined into it.
#define QUARNEX_BIT_INSTRUCTIONS [[gnu::target("bmi,bmi2,lzcnt")]]

/// True if the processor has these extensions.  (LZCNT is not tested: every processor with BMI2 has
/// it, and not all compilers can test for it.)
inline bool has_bit_instructions()
{
    return __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2");
}

#else // elsewhere the compiler's target settles it

using fast_bits = portable_bits;
#define QUARNEX_BIT_INSTRUCTIONS
constexpr bool has_bit_instructions()
{
    return false;
}

#endif

} // namespace quarnex
