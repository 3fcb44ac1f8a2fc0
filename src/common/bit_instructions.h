// common/bit_instructions.h - for hot loops: what compilers don't see by themselves
//
// Above all, code for processors that extract and count bits in one instruction.  A hot function is
// a template over one of the two kinds below.  It is compiled twice, once inlined into a function
// that is marked QUARNEX_BIT_INSTRUCTIONS, and chosen when the program runs.
#pragma once

#include "common/types.h"

#include <bit>

namespace quarnex {

/// Holds compilers from computing a value only where it is used, for one that the next step of a
/// hot loop waits for.
[[gnu::always_inline]] inline u64 computed_here(u64 value)
{
    asm("" : "+r"(value));
    return value;
}

/// Where a field of a machine word lies, 1 to 31 bits wide, in the forms that the functions below
/// want.
struct bit_field {
    constexpr bit_field(u32 lowest, u32 width)
        : mask((1U << width) - 1), control(static_cast<u16>(lowest | width << 8)),
          shift(static_cast<u8>(lowest))
    {
    }

    u32 mask;    // of the field at bit 0
    u16 control; // the operand of `bextr`
    u8 shift;
};

/// For any processor.
struct portable_bits {
    [[gnu::always_inline]] static usize extract(usize word, const bit_field& field)
    {
        return word >> field.shift & field.mask;
    }
    /// Number of zeros above the highest bit that is set; 64 if there is none.
    [[gnu::always_inline]] static usize leading_zeros(u64 word)
    {
        return static_cast<usize>(std::countl_zero(word));
    }
};

#if defined(__x86_64__)

/// For the x86 extensions BMI, BMI2 and LZCNT.  (The compilers' own functions for them can't be
/// inlined into a template that is not marked.)
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

/// Marks a function whose code, and that of all that is inlined into it, may use the instructions
/// of has_bit_instructions().
#define QUARNEX_BIT_INSTRUCTIONS [[gnu::target("bmi,bmi2,lzcnt")]]

/// Whether the processor has these extensions.  (None came with BMI2 and without LZCNT, and
/// compilers differ in whether they can ask for it.)
inline bool has_bit_instructions()
{
    return __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2");
}

#else // other processors have them, or don't, for good

using fast_bits = portable_bits;
#define QUARNEX_BIT_INSTRUCTIONS
constexpr bool has_bit_instructions()
{
    return false;
}

#endif

} // namespace quarnex
