// common/lower_case.h - ASCII case folding, independent of the locale
#pragma once

namespace quarnex {

/// Maps A to Z to a to z and every other character to itself.
constexpr char lower_case(char letter)
{
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + ('a' - 'A')) : letter;
}

} // namespace quarnex
