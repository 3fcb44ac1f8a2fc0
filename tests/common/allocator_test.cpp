#include "common/allocator.h"

#include "common/platform/memory.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <gtest/gtest.h>

namespace quarnex {
namespace {

constexpr memory_kind ordinary_kinds[] = {memory_kind::plain, memory_kind::zeroed,
                                          memory_kind::large_pages};

u8* allocate(usize size, memory_kind kind)
{
    return static_cast<u8*>(system_allocator.allocate(system_allocator.context, size, kind));
}

void release(void* memory, usize size, memory_kind kind)
{
    system_allocator.release(system_allocator.context, memory, size, kind);
}

/// A size that the compiler cannot see through.
usize hidden(usize value)
{
    static volatile usize number;
    number = value;
    return number;
}

TEST(system_allocator, memory_of_each_kind_is_writable_to_its_last_byte)
{
    for (const memory_kind kind : ordinary_kinds) {
        for (const usize size : {usize{1}, usize{100}, usize{1} << 16, (usize{5} << 20) + 3}) {
            u8* const memory = allocate(size, kind);
            ASSERT_NE(memory, nullptr);
            std::memset(memory, 0xA5, size);
            EXPECT_EQ(memory[size - 1], 0xA5);
            release(memory, size, kind);
        }
    }
}

TEST(system_allocator, memory_of_each_kind_is_aligned_for_any_type)
{
    for (const memory_kind kind : ordinary_kinds) {
        for (const usize size : {usize{1}, usize{24}, usize{1000}}) {
            u8* const memory = allocate(size, kind);
            const usize alignment = std::min(alignof(std::max_align_t), std::bit_floor(size));
            EXPECT_EQ(reinterpret_cast<usize>(memory) % alignment, 0U) << size;
            release(memory, size, kind);
        }
    }
}

TEST(system_allocator, zeroed_memory_is_zero_even_where_used_memory_was_released)
{
    constexpr usize size = 3000;
    for (int round = 0; round < 4; ++round) {
        u8* const memory = allocate(size, memory_kind::zeroed);
        ASSERT_NE(memory, nullptr);
        EXPECT_TRUE(std::all_of(memory, memory + size, [](u8 byte) { return byte == 0; }));
        std::memset(memory, 0xFF, size);
        release(memory, size, memory_kind::zeroed);
    }
}

TEST(system_allocator, reserved_memory_is_usable_where_it_is_committed)
{
    constexpr usize size = usize{64} << 20;
    constexpr usize page = usize{64} << 10; // a multiple of the page size everywhere
    u8* const memory = allocate(size, memory_kind::reserved);
    ASSERT_NE(memory, nullptr);
    for (u8* const part : {memory, memory + 10 * page, memory + size - page}) {
        ASSERT_TRUE(commit_memory(part, page));
        EXPECT_TRUE(std::all_of(part, part + page, [](u8 byte) { return byte == 0; }));
        std::memset(part, 0x5A, page);
        EXPECT_EQ(part[page - 1], 0x5A);
    }
    release(memory, size, memory_kind::reserved);
}

TEST(system_allocator, returns_null_for_nearly_the_whole_address_space)
{
    // A 32-bit process may get half of its address space in one allocation.
    constexpr usize too_much = SIZE_MAX - (usize{1} << 20);
    for (const memory_kind kind : {memory_kind::plain, memory_kind::zeroed,
                                   memory_kind::large_pages, memory_kind::reserved}) {
        EXPECT_EQ(allocate(hidden(too_much), kind), nullptr) << static_cast<int>(kind);
    }
    EXPECT_EQ(allocate(hidden(SIZE_MAX), memory_kind::large_pages), nullptr);
}

} // namespace
} // namespace quarnex
