// The exact ends of the streams of methods 3 to 5.
#include "support/exact_ends.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using namespace std::string_view_literals;
using test::bytes;
using test::bytes_of;
using test::parameters_of;

bool ends_exactly(u8 method, const bytes& payload, usize length, u8 level = 0)
{
    return test::ends_exactly({decoder_table[method]}, payload, length,
                              parameters_of(method, level));
}

// Payloads and blocks of few bytes

TEST(exact_end, an_empty_block_has_an_empty_stream)
{
    for (const u8 method : {u8{3}, u8{4}, u8{5}}) {
        EXPECT_TRUE(ends_exactly(method, {}, 0)) << int{method};
        for (usize size = 1; size <= 8; ++size) {
            EXPECT_FALSE(ends_exactly(method, {}, size)) << int{method};
            EXPECT_FALSE(ends_exactly(method, bytes(size), 0)) << int{method};
        }
    }
}

TEST(exact_end, a_block_of_raw_bytes_ends_with_the_flush_if_there_is_one)
{
    for (usize size = 1; size <= 12; ++size) {
        EXPECT_EQ(ends_exactly(3, bytes(size), 1), size == 1) << size;
        EXPECT_EQ(ends_exactly(4, bytes(size), 1), size == 1 + 5) << size;
        EXPECT_EQ(ends_exactly(5, bytes(size), 2), size == 2 + 5) << size;
        EXPECT_FALSE(ends_exactly(5, bytes(size), 1)) << size; // never coded
    }
    EXPECT_TRUE(ends_exactly(3, {'a'}, 1));
    EXPECT_TRUE(ends_exactly(4, {'a', 0, 0, 0, 0, 0}, 1));
    EXPECT_TRUE(ends_exactly(5, {'a', 'b', 0, 0, 0, 0, 0}, 2));
}

TEST(exact_end, the_first_byte_of_a_range_coder_is_0)
{
    EXPECT_FALSE(ends_exactly(4, {'a', 1, 0, 0, 0, 0}, 1));
    EXPECT_FALSE(ends_exactly(5, {'a', 'b', 1, 0, 0, 0, 0}, 2));
}

TEST(exact_end, the_bytes_that_a_range_coder_flushes_are_its_low_end)
{
    for (usize i = 1; i <= 4; ++i) {
        bytes stream{'a', 0, 0, 0, 0, 0};
        stream[1 + i] = 1;
        EXPECT_FALSE(ends_exactly(4, stream, 1)) << i;
        stream.insert(stream.begin(), 'b');
        EXPECT_FALSE(ends_exactly(5, stream, 2)) << i;
    }
}

// Last bytes and last matches

TEST(exact_end, method_3_pads_the_last_byte_with_zeros)
{
    // 'b' is 10011101, 255 is 000100000: 17 bits, 7 of padding.
    EXPECT_TRUE(ends_exactly(3, {'a', 0x9D, 0x10, 0x00}, 3));
    for (u32 bit = 0; bit < 7; ++bit)
        EXPECT_FALSE(ends_exactly(3, {'a', 0x9D, 0x10, static_cast<u8>(1U << bit)}, 3)) << bit;
    // Without padding.
    EXPECT_TRUE(ends_exactly(3, {'a', 0x9D}, 2));
    EXPECT_FALSE(ends_exactly(3, {'a', 0x9D, 0x00}, 2));
}

// (In method 3 another last byte can be another intact token.)
TEST(exact_end, a_changed_last_byte_of_a_range_coder_is_no_exact_end)
{
    for (const u8 method : {u8{4}, u8{5}}) {
        for (const test::shape& form : test::all_shapes()) {
            for (u8 level = 0; level <= 9; ++level) {
                const bytes block = form.make(1000, level);
                bytes stream = test::encode(block, parameters_of(method, level));
                if (stream.size() == block.size()) continue; // stored
                EXPECT_TRUE(ends_exactly(method, stream, block.size(), level)) << form.name;
                for (u32 mask = 1; mask < 256; ++mask) {
                    stream.back() ^= static_cast<u8>(mask);
                    EXPECT_FALSE(ends_exactly(method, stream, block.size(), level)) << form.name;
                    stream.back() ^= static_cast<u8>(mask);
                }
            }
        }
    }
}

/// By method and level.
class exact_end_property : public testing::TestWithParam<std::tuple<u8, u8>> {
  protected:
    const u8 method = std::get<0>(GetParam());
    const u8 level = std::get<1>(GetParam());
    const codec_parameters parameters = parameters_of(method, level, 12);

    /// Expects that what the encoder makes of a block ends exactly, but neither without its last
    /// byte nor with another one after it.  Returns false if the block is stored.
    bool check(const bytes& block) const
    {
        const bytes stream = test::encode(block, parameters);
        if (stream.size() == block.size()) return false;
        EXPECT_TRUE(ends_exactly(method, stream, block.size(), level)) << block.size();
        const bytes cut(stream.begin(), stream.end() - 1);
        EXPECT_FALSE(ends_exactly(method, cut, block.size(), level)) << block.size();
        for (const u8 next : {u8{0}, u8{0xFF}}) {
            const bytes longer = test::joined({stream, {next}});
            EXPECT_FALSE(ends_exactly(method, longer, block.size(), level)) << block.size();
        }
        return true;
    }
};

TEST_P(exact_end_property, the_last_match_of_an_encoder_can_pass_the_end)
{
    // At levels 0 to 7 the zeros after the block make up to 5 bytes of the last match.
    for (const std::string_view text : {"abcz\0\0\0defgggggggggggggggggggggz"sv,
                                        "abz\0\0\0\0\0\0\0\0\0defgggggggggggggggggggggz"sv})
        EXPECT_TRUE(check(bytes_of(text)));
}

TEST_P(exact_end_property, every_stream_of_an_encoder_ends_exactly)
{
    u32 streams = 0;
    test::for_all_edge_lengths(level, [&](const bytes& block) { streams += check(block) ? 1 : 0; });
    EXPECT_GT(streams, 900U);
}

// (A stream can be that of a longer block too, if the last tokens take no byte.)
TEST_P(exact_end_property, the_stream_of_a_longer_block_is_no_exact_end)
{
    const bytes block = test::find_shape("text").make(3000, 1);
    const bytes stream = test::encode(block, parameters);
    ASSERT_LT(stream.size(), block.size());
    for (usize length = 0; length + 50 <= block.size(); length += 7)
        EXPECT_FALSE(ends_exactly(method, stream, length, level)) << length;
}

INSTANTIATE_TEST_SUITE_P(methods_and_levels, exact_end_property,
                         testing::Combine(testing::Range(u8{3}, u8{6}),
                                          testing::Range(u8{0}, u8{10})));

} // namespace
} // namespace quarnex
