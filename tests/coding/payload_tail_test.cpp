#include "coding/payload_tail.h"

#include "support/shapes.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;

constexpr u32 reach = 8;

/// A payload of random bytes as a job of a decoder.
struct random_payload {
    explicit random_payload(u32 size) : content(test::find_shape("random").make(size, 1))
    {
        job.in_buf = content.data();
        job.in_len = size;
    }

    bytes content;
    codec_job job;
};

bytes bytes_at(const u8* in, usize count)
{
    return {in, in + count};
}

TEST(payload_tail, is_not_entered_while_all_that_is_read_is_in_the_payload)
{
    const random_payload payload(20);
    payload_tail<reach> tail(payload.job);
    const u8* const start = payload.job.in_buf;
    for (const u32 at : {0U, 5U, 12U}) EXPECT_EQ(tail.settle(start + at), start + at);
    EXPECT_FALSE(tail.entered());
    EXPECT_EQ(tail.limit(), start + 12);
    EXPECT_EQ(tail.end(), start + 20);
}

TEST(payload_tail, has_the_rest_of_the_payload_and_zeros)
{
    const random_payload payload(20);
    for (u32 at = 13; at <= 20; ++at) {
        payload_tail<reach> tail(payload.job);
        const u8* const in = tail.settle(payload.job.in_buf + at);
        EXPECT_TRUE(tail.entered());
        bytes expected(payload.content.begin() + at, payload.content.end());
        expected.resize(expected.size() + reach);
        EXPECT_EQ(bytes_at(in, expected.size()), expected) << at;
        EXPECT_EQ(tail.end() - in, i64{20} - at);
        EXPECT_EQ(tail.limit(), tail.end());
        EXPECT_EQ(tail.settle(in + 1), in + 1);
    }
}

TEST(payload_tail, is_entered_at_once_by_a_payload_that_is_shorter_than_what_is_read)
{
    for (u32 size = 0; size < reach; ++size) {
        const random_payload payload(size);
        payload_tail<reach> tail(payload.job);
        const u8* const in = tail.settle(payload.job.in_buf);
        EXPECT_TRUE(tail.entered());
        bytes expected = payload.content;
        expected.resize(size + reach);
        EXPECT_EQ(bytes_at(in, expected.size()), expected);
        EXPECT_EQ(tail.end(), in + size);
    }
}

TEST(payload_tail, is_not_entered_by_a_payload_of_just_what_is_read)
{
    const random_payload payload(reach);
    payload_tail<reach> tail(payload.job);
    EXPECT_EQ(tail.settle(payload.job.in_buf), payload.job.in_buf);
    EXPECT_NE(tail.settle(payload.job.in_buf + 1), payload.job.in_buf + 1);
}

} // namespace
} // namespace quarnex
