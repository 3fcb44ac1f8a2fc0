#include "common/platform/memory.h"

#include <cstdint>
#include <gtest/gtest.h>

namespace quarnex {
namespace {

TEST(platform_memory, the_address_space_is_within_the_range_of_addresses)
{
    EXPECT_GE(address_space(), u64{1} << 30);
    EXPECT_LE(address_space(), UINTPTR_MAX);
}

TEST(platform_memory, committed_pages_are_zero_and_can_be_committed_again)
{
    constexpr usize size = 1 << 20;
    auto* const memory = static_cast<u8*>(reserve_memory(4 * size));
    ASSERT_NE(memory, nullptr);
    ASSERT_TRUE(commit_memory(memory + size, size));
    EXPECT_EQ(memory[size], 0);
    EXPECT_EQ(memory[2 * size - 1], 0);
    memory[size] = 7;
    ASSERT_TRUE(commit_memory(memory, 2 * size));
    EXPECT_EQ(memory[0], 0);
    EXPECT_EQ(memory[size], 7);
    discard_memory(memory, 2 * size);
    memory[size] = 8;
    EXPECT_EQ(memory[size], 8);
    release_memory(memory, 4 * size);
}

} // namespace
} // namespace quarnex
