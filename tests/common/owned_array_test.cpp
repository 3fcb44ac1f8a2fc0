#include "common/owned_array.h"

#include "support/limited_allocator.h"

#include <gtest/gtest.h>
#include <utility>
#include <vector>

// Sanitizers return null for allocations that are too large, in the whole test program.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options()
{
    return "allocator_may_return_null=1";
}
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options()
{
    return "allocator_may_return_null=1";
}

namespace quarnex {
namespace {

using test::limited_allocator;
using call = limited_allocator::recorded_call;

/// A size that the compiler cannot see through.
usize hidden(usize value)
{
    static volatile usize number;
    number = value;
    return number;
}

TEST(owned_array, holds_all_its_elements)
{
    const owned_array<u32> array = make_array<u32>(system_allocator, 1000);
    ASSERT_NE(array, nullptr);
    for (u32 i = 0; i < 1000; ++i) array[i] = i * i;
    for (u32 i = 0; i < 1000; ++i) ASSERT_EQ(array[i], i * i);
}

TEST(owned_array, zeroed_elements_are_zero_even_in_memory_used_before)
{
    for (int round = 0; round < 3; ++round) {
        const owned_array<u64> array = make_zeroed_array<u64>(system_allocator, 500);
        ASSERT_NE(array, nullptr);
        for (usize i = 0; i < 500; ++i) {
            ASSERT_EQ(array[i], 0U);
            array[i] = ~u64{0};
        }
    }
}

TEST(owned_array, is_null_when_the_size_in_bytes_overflows)
{
    EXPECT_EQ(make_array<u64>(system_allocator, hidden(SIZE_MAX / 8 + 1)), nullptr);
    EXPECT_EQ(make_array<u64>(system_allocator, hidden(SIZE_MAX)), nullptr);
    EXPECT_EQ(make_zeroed_array<u64>(system_allocator, hidden(SIZE_MAX / 8 + 2)), nullptr);
}

TEST(owned_array, is_null_without_memory)
{
    EXPECT_EQ(make_array<u64>(system_allocator, hidden(SIZE_MAX / 9)), nullptr);
    EXPECT_EQ(make_zeroed_array<u64>(system_allocator, hidden(SIZE_MAX / 9)), nullptr);
}

TEST(owned_array, of_no_elements_is_not_null)
{
    limited_allocator recorder;
    EXPECT_NE(make_array<u64>(recorder.get(), 0), nullptr);
    ASSERT_EQ(recorder.allocated().size(), 1U);
    EXPECT_EQ(recorder.allocated()[0].size, 1U);
}

TEST(owned_array, asks_for_its_size_in_bytes_and_for_its_kind)
{
    limited_allocator recorder;
    const auto plain = make_array<u32>(recorder.get(), 7);
    const auto large = make_array<u8>(recorder.get(), 9, memory_kind::large_pages);
    const auto zeroed = make_zeroed_array<u64>(recorder.get(), 5);
    const auto table = make_zeroed_table<u16>(recorder.get(), 11, 1);
    const std::vector<call> expected{{plain.get(), 28, memory_kind::plain},
                                     {large.get(), 9, memory_kind::large_pages},
                                     {zeroed.get(), 40, memory_kind::zeroed},
                                     {table.get(), 22, memory_kind::zeroed}};
    EXPECT_EQ(recorder.allocated(), expected);
}

TEST(owned_array, is_released_with_the_size_and_the_kind_of_its_allocation)
{
    for (const memory_kind kind : {memory_kind::plain, memory_kind::zeroed,
                                   memory_kind::large_pages, memory_kind::reserved}) {
        limited_allocator recorder;
        static_cast<void>(make_array<u32>(recorder.get(), 1 << 20, kind));
        ASSERT_EQ(recorder.allocated().size(), 1U);
        EXPECT_EQ(recorder.allocated()[0].kind, kind);
        EXPECT_EQ(recorder.released(), recorder.allocated()) << static_cast<int>(kind);
    }
}

TEST(owned_array, passes_its_release_on_when_it_is_moved)
{
    limited_allocator recorder;
    owned_array<u32> first = make_array<u32>(recorder.get(), 3);
    owned_array<u32> second = make_zeroed_array<u32>(recorder.get(), 4);
    second = std::move(first);
    ASSERT_EQ(recorder.released().size(), 1U);
    EXPECT_EQ(recorder.released()[0], recorder.allocated()[1]);
    second.reset();
    ASSERT_EQ(recorder.released().size(), 2U);
    EXPECT_EQ(recorder.released()[1], recorder.allocated()[0]);
}

TEST(owned_array, is_null_when_the_allocator_fails_and_releases_nothing)
{
    limited_allocator recorder;
    recorder.refuse_from(1);
    EXPECT_EQ(make_array<u32>(recorder.get(), 3), nullptr);
    EXPECT_EQ(make_zeroed_array<u32>(recorder.get(), 3), nullptr);
    EXPECT_EQ(make_zeroed_table<u32>(recorder.get(), usize{1} << 20, usize{1} << 20), nullptr);
    EXPECT_EQ(recorder.allocated().size(), 3U);
    EXPECT_TRUE(recorder.released().empty());
}

TEST(owned_array, does_not_call_the_allocator_with_a_size_that_overflows)
{
    limited_allocator recorder;
    EXPECT_EQ(make_array<u64>(recorder.get(), hidden(SIZE_MAX / 8 + 1)), nullptr);
    EXPECT_TRUE(recorder.allocated().empty());
}

TEST(large_pages_pay, with_a_use_for_every_32_kib)
{
    EXPECT_TRUE(large_pages_pay(usize{128} << 20, 4096));
    EXPECT_FALSE(large_pages_pay(usize{128} << 20, 4095));
    EXPECT_FALSE(large_pages_pay(usize{2} << 20, 63));
}

} // namespace
} // namespace quarnex
