#include "coding/alphabet_decoder.h"

#include "support/codec_runs.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::bytes_of;

/// Returns the numbers of a list, whatever is asked for, and records the contexts.
struct listed_source {
    const std::vector<u32>* numbers;
    bytes* contexts;
    usize bad_from = SIZE_MAX; // index of the first damaged number
    bool at_end = true;
    usize taken = 0;

    u32 take() { return taken < numbers->size() ? (*numbers)[taken++] : 0; }
    u32 take_main() { return take(); }
    u32 take_length() { return take(); }
    u32 take_distance() { return take(); }
    u32 take_extra(u32 count)
    {
        EXPECT_EQ(take(), count);
        return take();
    }
    void set_context(u8 byte) { contexts->push_back(byte); }
    bool ok() const { return taken < bad_from; }
    bool ended() const { return at_end; }
};

/// A decoded block, which starts with the raw byte "a", and the last bytes of its tokens.
struct outcome {
    std::string block;
    std::string contexts;
    bool operator==(const outcome&) const = default;
};

template <u32 MinMatch = 4>
outcome decoded(const std::vector<u32>& numbers, u32 size, usize bad_from = SIZE_MAX)
{
    const auto block = test::exact_buffer(size);
    block[0] = 'a';
    bytes contexts;
    const u32 len =
        decode_alphabet<MinMatch>(listed_source{&numbers, &contexts, bad_from}, block.get(), size)
            .length;
    return {{block.get(), block.get() + len}, {contexts.begin(), contexts.end()}};
}

TEST(alphabet_decoder, a_block_of_the_raw_byte_takes_nothing)
{
    EXPECT_EQ(decoded({}, 1), (outcome{"a", ""}));
}

TEST(alphabet_decoder, literals)
{
    EXPECT_EQ(decoded({'b', 'c'}, 3), (outcome{"abc", "bc"}));
}

TEST(alphabet_decoder, a_match_of_the_shortest_length)
{
    EXPECT_EQ(decoded<4>({'b', 256, 1, 'x'}, 7), (outcome{"abababx", "bbx"}));
    EXPECT_EQ(decoded<3>({'b', 256, 1, 'x'}, 6), (outcome{"ababax", "bax"}));
    EXPECT_EQ(decoded<2>({'b', 256, 1, 'x'}, 5), (outcome{"ababx", "bbx"}));
}

TEST(alphabet_decoder, a_long_match_takes_a_slot_and_its_extra_bits_before_the_distance)
{
    EXPECT_EQ(decoded({287, 0, 0}, 36), (outcome{std::string(36, 'a'), ""}));
    // Slot 7 is 12 and 2 extra bits: 35 + 12 + 2.
    EXPECT_EQ(decoded({287, 7, 2, 2, 0, 'x'}, 51), (outcome{std::string(50, 'a') + 'x', "ax"}));
}

TEST(alphabet_decoder, a_distance_with_extra_bits)
{
    // Slot 4 and 1: offset 5, distance 6.
    EXPECT_EQ(decoded({'b', 'c', 'd', 'e', 'f', 256, 4, 1, 1}, 10),
              (outcome{"abcdefabcd", "bcdef"}));
}

TEST(alphabet_decoder, the_context_is_the_last_byte_of_a_match_overlapping_or_not)
{
    for (u32 dist = 1; dist <= 3; ++dist) {
        for (u32 len = 2; len <= 5; ++len) {
            // Matches near the end of a block are copied in another way.
            for (const u32 rest : {1U, 40U}) {
                const outcome out = decoded<2>({'b', 'c', 256 + len - 2, dist - 1}, 3 + len + rest);
                EXPECT_EQ(out.contexts.substr(0, 3), std::string("bc") + out.block[2 + len])
                    << dist << ' ' << len << ' ' << rest;
                EXPECT_EQ(out.contexts.size(), 3 + rest);
            }
        }
    }
}

TEST(alphabet_decoder, the_last_match_is_cut_at_the_end_of_the_block)
{
    // No token needs its context.
    EXPECT_EQ(decoded({'b', 256, 1}, 5), (outcome{"ababa", "b"}));
    EXPECT_EQ(decoded({'b', 256, 1}, 3), (outcome{"aba", "b"}));
    // The longest: slot 63 with all extra bits.
    EXPECT_EQ(decoded({'b', 287, 63, 30, (1U << 30) - 1, 1}, 9), (outcome{"ababababa", "b"}));
}

TEST(alphabet_decoder, a_distance_before_the_block_ends_it)
{
    EXPECT_EQ(decoded({'b', 256, 2, 'x'}, 9), (outcome{"ab", "b"}));
    EXPECT_EQ(decoded({'b', 256, 63, 30, (1U << 30) - 1, 'x'}, 9), (outcome{"ab", "b"}));
}

TEST(alphabet_decoder, a_token_that_is_not_ok_ends_the_block_before_it)
{
    EXPECT_EQ(decoded({'b', 'c', 'd'}, 4, 3).block, "abc");
    EXPECT_EQ(decoded({'b', 256, 0, 'd'}, 9, 3).block, "ab");
    EXPECT_EQ(decoded({'b', 256, 0, 'd'}, 9, 4).block, "abbbbb");
}

// Exact ends

template <u32 MinMatch = 4>
bool ends_exactly(const std::vector<u32>& numbers, u32 size, bool at_end = true,
                  usize bad_from = SIZE_MAX)
{
    const auto block = test::exact_buffer(size);
    block[0] = 'a';
    bytes contexts;
    const listed_source source{&numbers, &contexts, bad_from, at_end};
    return decode_alphabet<MinMatch>(source, block.get(), size).exact_end;
}

TEST(alphabet_decoder, ends_exactly_with_a_full_block_and_a_source_at_its_end)
{
    EXPECT_TRUE(ends_exactly({}, 1));
    EXPECT_FALSE(ends_exactly({}, 1, false));
    EXPECT_TRUE(ends_exactly({'b', 'c'}, 3));
    EXPECT_FALSE(ends_exactly({'b', 'c'}, 3, false));
    EXPECT_TRUE(ends_exactly({'b', 256, 1}, 6));
    EXPECT_FALSE(ends_exactly({'b', 256, 2, 'x'}, 7));  // before the block
    EXPECT_FALSE(ends_exactly({'b', 'c'}, 3, true, 2)); // not ok
}

TEST(alphabet_decoder, ends_exactly_if_an_encoder_can_have_written_the_last_match)
{
    for (u32 excess = 0; excess <= 10; ++excess) {
        EXPECT_EQ(ends_exactly<4>({'b', 256 + 10, 1}, 16 - excess), excess <= 5) << excess;
        EXPECT_EQ(ends_exactly<3>({'b', 256 + 11, 1}, 16 - excess), excess == 0) << excess;
        EXPECT_EQ(ends_exactly<2>({'b', 256 + 12, 1}, 16 - excess), excess == 0) << excess;
    }
    EXPECT_FALSE(ends_exactly({'b', 287, 63, 30, (1U << 30) - 1, 1}, 9));
}

} // namespace
} // namespace quarnex
