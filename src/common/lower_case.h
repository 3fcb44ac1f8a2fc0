// common/lower_case.h - letters of names, whatever the language of the system
#pragma once

namespace quarnex {

/// Turns A to Z into a to z, and leaves all else alone.
constexpr char lower_case(char letter)
{
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + ('a' - 'A')) : letter;
}

} // namespace quarnex
