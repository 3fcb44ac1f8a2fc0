#include "common/copy.h"

#include "support/shapes.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;

constexpr usize history = 80; // bytes before the destination
constexpr usize room = 300;   // bytes from there on

/// Distinct bytes before the destination, 0xEE from there on.
bytes canvas()
{
    bytes memory(history + room, 0xEE);
    for (usize i = 0; i < history; ++i) memory[i] = static_cast<u8>(i + 1);
    return memory;
}

/// The canvas after a forward byte copy.
bytes copied_one_by_one(usize dist, usize len)
{
    bytes memory = canvas();
    for (usize i = history; i < history + len; ++i) memory[i] = memory[i - dist];
    return memory;
}

std::ptrdiff_t end_of(usize len)
{
    return static_cast<std::ptrdiff_t>(history + len);
}

/// A function like copy_match() and its overrun.
struct match_copy {
    void (*copy)(u8* dest, u32 dist, usize len);
    usize overrun;
};
constexpr std::array<match_copy, 2> match_copies{
    {{copy_match, copy_match_overrun}, {copy_match_32, copy_match_32_overrun}}};

TEST(copy, match_equals_a_byte_by_byte_copy_at_every_distance_and_length)
{
    for (const match_copy& match : match_copies) {
        for (u32 dist = 1; dist <= 70; ++dist) {
            for (usize len = 0; len <= 200; ++len) {
                bytes memory = canvas();
                match.copy(&memory[history], dist, len);
                const bytes expected = copied_one_by_one(dist, len);
                ASSERT_TRUE(
                    std::equal(memory.begin(), memory.begin() + end_of(len), expected.begin()))
                    << "distance " << dist << ", length " << len;
            }
        }
    }
}

TEST(copy, match_writes_nothing_past_its_overrun)
{
    for (const match_copy& match : match_copies) {
        for (u32 dist = 1; dist <= 70; ++dist) {
            for (usize len = 0; len <= 200; ++len) {
                bytes memory = canvas();
                match.copy(&memory[history], dist, len);
                ASSERT_TRUE(std::all_of(memory.begin() + end_of(len + match.overrun), memory.end(),
                                        [](u8 byte) { return byte == 0xEE; }))
                    << "distance " << dist << ", length " << len;
            }
        }
    }
}

TEST(copy, match_within_a_room_writes_nothing_past_it)
{
    for (u32 dist = 1; dist <= 40; ++dist) {
        for (usize len = 0; len <= 100; ++len) {
            for (usize limit = len; limit <= len + 2 * copy_match_overrun; ++limit) {
                bytes memory = canvas();
                copy_match_within(&memory[history], dist, len, limit);
                const bytes expected = copied_one_by_one(dist, len);
                ASSERT_TRUE(
                    std::equal(memory.begin(), memory.begin() + end_of(len), expected.begin()))
                    << "distance " << dist << ", length " << len << ", room " << limit;
                ASSERT_TRUE(std::all_of(memory.begin() + end_of(limit), memory.end(),
                                        [](u8 byte) { return byte == 0xEE; }))
                    << "distance " << dist << ", length " << len << ", room " << limit;
            }
        }
    }
}

TEST(copy, widened_pattern_repeats_at_the_smallest_multiple_from_16_on)
{
    static constexpr std::array<u32, 16> wide{0,  16, 16, 18, 16, 20, 18, 21,
                                              16, 18, 20, 22, 24, 26, 28, 30};
    for (u32 dist = 1; dist < 16; ++dist) {
        bytes memory = canvas();
        EXPECT_EQ(widen_pattern(&memory[history], dist), wide[dist]);
        const bytes expected = copied_one_by_one(dist, 16);
        EXPECT_TRUE(std::equal(memory.begin(), memory.begin() + end_of(16), expected.begin()))
            << "distance " << dist;
        EXPECT_TRUE(std::all_of(memory.begin() + end_of(16 + 8), memory.end(),
                                [](u8 byte) { return byte == 0xEE; }))
            << "distance " << dist;
    }
}

TEST(copy, words_have_their_exact_size)
{
    bytes memory = canvas();
    copy_8(&memory[history], &memory[0]);
    EXPECT_EQ(memory, copied_one_by_one(history, 8));
    copy_16(&memory[history], &memory[0]);
    EXPECT_EQ(memory, copied_one_by_one(history, 16));
    copy_32(&memory[history], &memory[0]);
    EXPECT_EQ(memory, copied_one_by_one(history, 32));
}

TEST(copy, adjacent_words_do_not_overlap)
{
    bytes memory = canvas();
    copy_8(&memory[history], &memory[history - 8]);
    copy_8(&memory[history + 8], &memory[history]);
    EXPECT_EQ(memory, copied_one_by_one(8, 16));
    copy_16(&memory[history], &memory[history - 16]);
    copy_16(&memory[history + 16], &memory[history]);
    EXPECT_EQ(memory, copied_one_by_one(16, 32));
}

} // namespace
} // namespace quarnex
