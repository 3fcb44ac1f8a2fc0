// common/owned_array.h - a heap array with one owner, null when memory ran out
//
// std::unique_ptr<T[]> over an allocator (common/allocator.h).  Elements are not constructed one by
// one, and nothing throws.
#pragma once

#include "common/allocator.h"
#include "common/platform/memory.h"
#include "common/types.h"

#include <memory>
#include <type_traits>

namespace quarnex {

/// Gives memory back to the allocator it came from.
struct return_memory {
    const allocator* source = nullptr;
    usize size = 0; // in bytes
    memory_kind kind = memory_kind::plain;
    void operator()(void* memory) const { source->release(source->context, memory, size, kind); }
};

/// The allocator must outlive the array.
template <class T>
using owned_array = std::unique_ptr<T[], return_memory>;

/// Returns `count` elements, null when there is no memory for them.  No elements take one byte.
template <class T>
[[nodiscard]] owned_array<T> make_array(const allocator& source, usize count,
                                        memory_kind kind = memory_kind::plain)
{
    static_assert(std::is_trivially_destructible_v<T>);
    if (count > SIZE_MAX / sizeof(T)) return {};
    const usize size = count != 0 ? count * sizeof(T) : 1;
    void* const memory = source.allocate(source.context, size, kind);
    return {static_cast<T*>(memory), return_memory{&source, size, kind}};
}

/// Returns `count` elements of value zero; null when there is no memory for them.
template <class T>
[[nodiscard]] owned_array<T> make_zeroed_array(const allocator& source, usize count)
{
    return make_array<T>(source, count, memory_kind::zeroed);
}

/// Whether large pages pay for a table of `size` bytes that is touched at some `uses` places:
/// clearing one takes the system as long as some 64 small ones.
constexpr bool large_pages_pay(usize size, usize uses)
{
    return uses >= size / (large_page_size / 64);
}

/// Like make_zeroed_array(), for a table of which some `uses` scattered elements are touched: in
/// large pages where they pay.
template <class T>
[[nodiscard]] owned_array<T> make_zeroed_table(const allocator& source, usize count, usize uses)
{
    owned_array<T> table = make_zeroed_array<T>(source, count);
    if (table && large_pages_pay(count * sizeof(T), uses)) {
        prefer_large_pages(table.get(), count * sizeof(T));
    }
    return table;
}

} // namespace quarnex
