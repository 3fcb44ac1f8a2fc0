// common/bit_instructions.h - code for processors that extract and count bits in one instruction
#pragma once

namespace quarnex {

#if defined(__x86_64__) || defined(__i386__)

/// Marks a function whose code, and that of all that is inlined into it, may use the instructions
/// of has_bit_instructions().
#define QUARNEX_BIT_INSTRUCTIONS [[gnu::target("bmi,bmi2,lzcnt")]]

/// Whether the processor has the x86 extensions BMI, BMI2 and LZCNT.  (None came with BMI2 and
/// without LZCNT, and compilers differ in whether they can ask for it.)
inline bool has_bit_instructions()
{
    return __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2");
}

#else // other processors have them, or don't, for good

#define QUARNEX_BIT_INSTRUCTIONS
inline constexpr bool has_bit_instructions()
{
    return false;
}

#endif

} // namespace quarnex
