#include "coding/last_match.h"

#include "support/codec_runs.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

/// Copies a match into a block that starts with "abc" and ends with its buffer.  Returns its end.
template <u32 MinMatch>
u32 copied(u32 size, u32 dist, u64 len)
{
    const auto block = test::exact_buffer(size);
    const std::string start = "abc";
    std::copy(start.begin(), start.end(), block.get());
    const u32 end = copy_last_match<MinMatch>(block.get(), size, 3, dist, len);
    for (u32 i = 3; i < std::min(end, size); ++i) EXPECT_EQ(block[i], block[i - dist]) << i;
    return end;
}

TEST(last_match, ends_in_the_block)
{
    for (u32 size = 4; size <= 60; ++size) {
        for (u32 len = 0; len <= size - 3; ++len)
            EXPECT_EQ(copied<4>(size, 1 + len % 3, len), 3 + len) << size;
    }
}

TEST(last_match, past_the_block_by_what_an_encoder_can_write_or_by_one_byte_more)
{
    for (u32 size = 4; size <= 60; ++size) {
        for (u32 excess = 1; excess <= 9; ++excess) {
            const u32 len = size - 3 + excess;
            EXPECT_EQ(copied<4>(size, 2, len), size + std::min(excess, 6U)) << size;
            EXPECT_EQ(copied<3>(size, 2, len), size + 1) << size;
            EXPECT_EQ(copied<2>(size, 2, len), size + 1) << size;
        }
    }
    EXPECT_EQ(copied<4>(40, 3, u64{1} << 32), 46U);
}

TEST(last_match, a_whole_copy_leaves_room_for_its_overrun)
{
    EXPECT_EQ(whole_copy_end(100), 100 - copy_match_overrun);
    EXPECT_EQ(whole_copy_end(copy_match_overrun + 1), 1U);
    EXPECT_EQ(whole_copy_end(copy_match_overrun), 0U);
    EXPECT_EQ(whole_copy_end(0), 0U);
    EXPECT_EQ(whole_copy_end(33, 32), 1U);
    EXPECT_EQ(whole_copy_end(31, 32), 0U);
}

} // namespace
} // namespace quarnex
