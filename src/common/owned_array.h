// common/owned_array.h - an array with one owner, in memory from an allocator
//
// std::unique_ptr<T[]> with a deleter that returns the memory to its allocator
// (common/allocator.h).  Null on failure; nothing throws.  Elements have no constructor calls.
#pragma once

#include "common/allocator.h"
#include "common/platform/memory.h"
#include "common/types.h"

#include <memory>
#include <type_traits>

namespace quarnex {

/// Deleter: returns memory to the allocator it came from.
struct return_memory {
    const allocator* source = nullptr;
    usize size = 0; // in bytes
    memory_kind kind = memory_kind::plain;
    void operator()(void* memory) const { source->release(source->context, memory, size, kind); }
};

/// An array of elements without a destructor.  The allocator must outlive it.
template <class T>
using owned_array = std::unique_ptr<T[], return_memory>;

/// Returns `count` elements; null on failure.  Zero elements take one byte, so that success is not
/// null.
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

/// Returns `count` elements of value zero; null on failure.
template <class T>
[[nodiscard]] owned_array<T> make_zeroed_array(const allocator& source, usize count)
{
    return make_array<T>(source, count, memory_kind::zeroed);
}

/// True if large pages are faster for a table of `size` bytes of which about `uses` scattered
/// elements are touched: the system clears a large page in the time of about 64 small ones.
constexpr bool large_pages_pay(usize size, usize uses)
{
    return uses >= size / (large_page_size / 64);
}

/// make_zeroed_array() for a table of which about `uses` scattered elements are touched: in large
/// pages where these are faster.
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
