#include "common/owned_array.h"

#include <gtest/gtest.h>

// In the whole test program an allocation that can't be met gives null, as it does without
// sanitizers.
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

/// A number that the compiler doesn't see through.
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

TEST(owned_array, zeroed_elements_are_zero_also_in_memory_used_before)
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

TEST(owned_array, is_null_when_there_is_no_memory)
{
    EXPECT_EQ(make_array<u64>(system_allocator, hidden(SIZE_MAX / 9)), nullptr);
    EXPECT_EQ(make_zeroed_array<u64>(system_allocator, hidden(SIZE_MAX / 9)), nullptr);
}

} // namespace
} // namespace quarnex
