// What m2_decoder reports as the exact end of a stream.
#include "method2/m2_codec.h"

#include "method2/m2_streams.h"
#include "support/exact_ends.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using namespace std::string_view_literals;
using test::bytes;
using test::bytes_of;
using test::joined;
using test::m2_block;
using test::parameters_of;

const test::codec_entries decoders{&m2_decoder, &m2_portable_decoder};
/// The last level of one dialect and the first of the other.
constexpr std::array<u8, 2> dialects{7, 8};

bool is_exact(const bytes& payload, usize length, u32 level)
{
    return test::ends_exactly(decoders, payload, length, parameters_of(2, static_cast<u8>(level)));
}

TEST(m2_exact_end, accepts_the_stream_of_one_byte)
{
    for (const u8 level : dialects) {
        EXPECT_TRUE(is_exact({'A', 0b0001111'0}, 1, level));
        EXPECT_FALSE(is_exact({'A', 0b0001111'1}, 1, level)); // no zero to fill up the byte
        EXPECT_FALSE(is_exact({'A', 0b0001111'0, 0}, 1, level));
        EXPECT_FALSE(is_exact({'A'}, 1, level));
        EXPECT_FALSE(is_exact({}, 1, level));
        EXPECT_FALSE(is_exact({}, 0, level));
        EXPECT_FALSE(is_exact({'A', 0b0001111'0}, 0, level));
    }
}

TEST(m2_exact_end, rejects_any_bit_flip_in_the_end_token_and_after_it)
{
    for (const u8 level : dialects) {
        for (u32 literals = 0; literals < 30; ++literals) { // the end token from any bit on
            const m2_block block = m2_block(level).literals(literals);
            const bytes stream = block.stream();
            EXPECT_TRUE(is_exact(stream, block.size(), level)) << literals;
            for (usize bit = block.stream_bits(); bit < 8 * stream.size(); ++bit) {
                bytes changed = stream;
                changed[bit / 8] = static_cast<u8>(changed[bit / 8] ^ 0x80U >> bit % 8);
                EXPECT_FALSE(is_exact(changed, block.size(), level)) << literals << ", bit " << bit;
            }
        }
    }
}

TEST(m2_exact_end, requires_the_end_token)
{
    for (const u8 level : dialects) {
        for (u32 literals = 0; literals < 30; ++literals) {
            const m2_block block = m2_block(level).literals(literals);
            EXPECT_FALSE(is_exact(block.writer().out, block.size(), level)) << literals;
            // Nor may another token stand before it.
            const m2_block longer = m2_block(level).literals(literals).literal('x');
            EXPECT_FALSE(is_exact(longer.stream(), block.size(), level)) << literals;
        }
    }
}

TEST(m2_exact_end, accepts_a_last_match_past_the_end_as_far_as_the_level_reaches)
{
    for (const u8 level : dialects) {
        const u32 max_excess = level < 8 ? 5 : 0; // the parses of levels 8 and 9 stop at the end
        for (const u32 literals : {0U, 1U, 2U, 3U, 4U, 7U, 40U}) {
            for (const u32 len : {4U, 6U, 7U, 14U, 15U, 31U, 32U, 33U, 40U, 5000U}) {
                for (const u32 dist : {1U, 17U}) {
                    if (dist > literals + 1) continue;
                    const m2_block block = m2_block(level).literals(literals).match(len, dist);
                    const bytes stream = block.stream();
                    for (u32 excess = 0; excess <= 12 && excess < len; ++excess)
                        EXPECT_EQ(is_exact(stream, block.size() - excess, level),
                                  excess <= max_excess)
                            << literals << ", " << len << " bytes, excess " << excess;
                }
            }
        }
    }
}

TEST(m2_exact_end, accepts_runs_up_to_the_end_of_the_block_but_not_past_it)
{
    for (const u8 level : dialects) {
        for (const u32 count : {12U, 13U, 30U, 1000U}) {
            const m2_block block = m2_block(level).literals(5).literal_run(count);
            for (u32 excess = 0; excess < 12; ++excess)
                EXPECT_EQ(is_exact(block.stream(), block.size() - excess, level), excess == 0)
                    << count << ", excess " << excess;
        }
    }
    for (const u32 count : {1U, 3U, 30U, 1000U}) {
        const m2_block block = m2_block(7).literals(5).byte_run('x', count);
        for (u32 excess = 0; excess < count && excess < 12; ++excess)
            EXPECT_EQ(is_exact(block.stream(), block.size() - excess, 7), excess == 0)
                << count << ", excess " << excess;
    }
}

TEST(m2_exact_end, rejects_an_early_end_token)
{
    for (const u8 level : dialects) {
        for (u32 literals = 0; literals < 8; ++literals) {
            const m2_block block = m2_block(level).literals(literals);
            for (const u32 missing : {1U, 5U, 6U, 100U})
                EXPECT_FALSE(is_exact(block.stream(), block.size() + missing, level));
        }
    }
}

TEST(m2_exact_end, accepts_last_matches_of_encoders_past_the_end)
{
    // Four bytes at the last position, six at levels 4 to 7 in the second block.
    const bytes by_3 = bytes_of("abcz\0\0\0defgggggggggggggggggggggz"sv);
    const bytes by_5 = bytes_of("abz\0\0\0\0\0\0\0\0\0defgggggggggggggggggggggz"sv);
    for (u8 level = 0; level <= 9; ++level) {
        const codec_parameters parameters = parameters_of(2, level, 16);
        EXPECT_TRUE(test::expect_exact_end_of_block(decoders, by_3, parameters)) << int{level};
        EXPECT_TRUE(test::expect_exact_end_of_block(decoders, by_5, parameters)) << int{level};
    }
}

class m2_exact_end_property : public testing::TestWithParam<u8> {};

TEST_P(m2_exact_end_property, accepts_every_stream_of_the_encoder)
{
    u32 streams = 0;
    test::for_all_edge_lengths(GetParam(), [&](const bytes& block) {
        const codec_parameters parameters = parameters_of(2, GetParam(), 12);
        streams += test::expect_exact_end_of_block(decoders, block, parameters) ? 1 : 0;
    });
    EXPECT_GT(streams, 1000U);
}

TEST_P(m2_exact_end_property, accepts_streams_of_random_tokens)
{
    for (u64 seed = 1; seed <= 40; ++seed) {
        m2_block block = test::random_m2_block(seed, GetParam(), 300);
        block.match(4, 1); // no byte run, which may have 0 bytes
        test::expect_exact_end(decoders, block.stream(), block.size(),
                               parameters_of(2, GetParam()));
    }
}

INSTANTIATE_TEST_SUITE_P(levels, m2_exact_end_property, testing::Range(u8{0}, u8{10}));

} // namespace
} // namespace quarnex
