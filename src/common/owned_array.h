// common/owned_array.h - a heap array with one owner, null when memory ran out
//
// std::unique_ptr<T[]> with the two ways of making one that this program needs: neither
// constructs elements one by one, and neither throws.
#pragma once

#include "common/types.h"

#include <cstdlib>
#include <memory>
#include <type_traits>

namespace quarnex {

struct free_memory {
    void operator()(void* memory) const { std::free(memory); }
};

template <class T>
using owned_array = std::unique_ptr<T[], free_memory>;

/// `count` elements of undefined content; null when there is no memory for them.
template <class T>
[[nodiscard]] owned_array<T> make_array(usize count)
{
    static_assert(std::is_trivial_v<T>);
    if (count > SIZE_MAX / sizeof(T)) return {};
    return owned_array<T>(static_cast<T*>(std::malloc(count * sizeof(T))));
}

/// `count` elements of value zero; null when there is no memory for them.  Large arrays come as
/// fresh pages, which cost nothing until they are touched.
template <class T>
[[nodiscard]] owned_array<T> make_zeroed_array(usize count)
{
    static_assert(std::is_trivial_v<T>);
    return owned_array<T>(static_cast<T*>(std::calloc(count, sizeof(T))));
}

} // namespace quarnex
