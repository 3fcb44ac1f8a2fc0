#include "pipeline/codec.h"

#include "support/codec_runs.h"
#include "support/error_recorder.h"
#include "support/system_differences.h"

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
    block_job job;
};

TEST(store_block, copies_the_block_and_returns_its_length)
{
    job_of_a_block of({1, 2, 3});
    EXPECT_EQ(store_block(of.job), 3);
    EXPECT_EQ(of.out, of.block);
}

TEST(store_block, an_empty_block_has_length_0)
{
    EXPECT_EQ(store_block(block_job()), 0);
}

TEST(shorter_stream, one_byte_shorter_than_the_block_stays)
{
    job_of_a_block of({1, 2, 3});
    EXPECT_EQ(shorter_stream(of.job, 2), 2);
    EXPECT_EQ(of.out, bytes(3, 0xEE));
}

TEST(shorter_stream, as_long_as_the_block_or_longer_or_of_length_0_gives_way_to_it)
{
    for (const u32 length : {3U, 4U, 0U}) {
        job_of_a_block of({1, 2, 3});
        EXPECT_EQ(shorter_stream(of.job, length), 3) << length;
        EXPECT_EQ(of.out, of.block) << length;
    }
}

TEST(report_no_memory, is_failure_100)
{
    test::error_recorder recorder;
    EXPECT_EQ(report_no_memory(block_job()), -100);
    EXPECT_EQ(recorder.take(), std::vector{test::no_memory_failure});
}

TEST(report_no_memory_death, ends_the_process)
{
    EXPECT_EXIT(report_no_memory(block_job()), test::ended_abnormally,
                "^quarnex: error 100: malloc error\n$");
}

} // namespace
} // namespace quarnex
