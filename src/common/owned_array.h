// common/owned_array.h - a heap array with one owner, null when memory ran out
//
// std::unique_ptr<T[]> with the ways of making one that this program needs: none constructs
// elements one by one, and none throws.
#pragma once

#include "common/platform.h"
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

/// `size` bytes of undefined content at the start of a large page, in large pages as far as the
/// system has them: a large array then costs few page faults.  Null when there is no memory.
[[nodiscard]] inline owned_array<u8> make_large_buffer(usize size)
{
    owned_array<u8> buffer(static_cast<u8*>(allocate_for_large_pages(size)));
    if (buffer) prefer_large_pages(buffer.get(), size);
    return buffer;
}

/// `count` elements of value zero; null when there is no memory for them.  Large arrays come as
/// fresh pages, which cost nothing until they are touched.
template <class T>
[[nodiscard]] owned_array<T> make_zeroed_array(usize count)
{
    static_assert(std::is_trivial_v<T>);
    return owned_array<T>(static_cast<T*>(std::calloc(count, sizeof(T))));
}

/// Whether large pages pay for a table of `size` bytes that is touched at some `uses` places:
/// clearing one takes the system as long as some 64 small ones.
constexpr bool large_pages_pay(usize size, usize uses)
{
    return uses >= size / (large_page_size / 64);
}

/// make_zeroed_array() for a table of which some `uses` elements are touched, here and there.  It
/// comes in large pages where they pay.
template <class T>
[[nodiscard]] owned_array<T> make_zeroed_table(usize count, usize uses)
{
    owned_array<T> table = make_zeroed_array<T>(count);
    if (table && large_pages_pay(count * sizeof(T), uses)) {
        prefer_large_pages(table.get(), count * sizeof(T));
    }
    return table;
}

} // namespace quarnex
