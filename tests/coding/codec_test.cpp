#include "coding/codec.h"

#include "support/codec_runs.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;

/// A block to encode, and where its stream goes.
struct job_of_a_block {
    explicit job_of_a_block(const bytes& content) : block(content), out(content.size(), 0xEE)
    {
        job.in_buf = block.data();
        job.in_len = static_cast<u32>(block.size());
        job.out_buf = out.data();
    }

    bytes block;
    bytes out;
    codec_job job;
};

TEST(store_block, copies_the_block_and_returns_its_length)
{
    job_of_a_block of({1, 2, 3});
    EXPECT_EQ(store_block(of.job).length, 3U);
    EXPECT_EQ(of.out, of.block);
}

TEST(store_block, an_empty_block_has_length_0)
{
    EXPECT_EQ(store_block(codec_job()).length, 0U);
}

TEST(shorter_stream, one_byte_shorter_than_the_block_stays)
{
    job_of_a_block of({1, 2, 3});
    EXPECT_EQ(shorter_stream(of.job, 2).length, 2U);
    EXPECT_EQ(of.out, bytes(3, 0xEE));
}

TEST(shorter_stream, as_long_as_the_block_or_longer_or_of_length_0_gives_way_to_it)
{
    for (const u32 length : {3U, 4U, 0U}) {
        job_of_a_block of({1, 2, 3});
        EXPECT_EQ(shorter_stream(of.job, length).length, 3U) << length;
        EXPECT_EQ(of.out, of.block) << length;
    }
}

} // namespace
} // namespace quarnex
