#include "format/container.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using header_bytes = std::array<u8, file_header_bytes>;

// A header with a different value in each byte in use.
constexpr header_bytes header_image{
    0,    'Q',  'R',  '0',                          // magic
    0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01, // original size
    4,    9,    0,    0,                            // method, level, reserved
    7,    1,    0xFE, 0x1A,                         // context bits, filter, block_mb
    0x1B, 0x2B, 0x3B, 0x4B,                         // hash_bits
    0x08, 0x18, 0x28, 0x38,                         // chain_bits
    0,    0,    0,    0,                            // in_len
};
constexpr file_header header_values{0x0102030405060708,
                                    {{4, 9, 7, 0x4B3B2B1B, 0x38281808}, 1, 0x1AFE}};

TEST(container, header_has_32_bytes_in_a_fixed_order)
{
    EXPECT_EQ(pack_file_header(header_values), header_image);
}

TEST(container, header_of_the_smallest_values)
{
    header_bytes expected{0, 'Q', 'R', '0'};
    expected[12] = 1;
    expected[18] = 32;
    expected[20] = 12;
    expected[24] = 1;
    EXPECT_EQ(pack_file_header({0, {{1, 0, 0, 12, 1}, 0, 32}}), expected);
}

TEST(container, header_is_parsed)
{
    file_header header{};
    ASSERT_TRUE(unpack_file_header(header_image, header));
    EXPECT_EQ(header.original_size, 0x0102030405060708U);
    EXPECT_EQ(header.parameters.codec.method, 4);
    EXPECT_EQ(header.parameters.codec.level, 9);
    EXPECT_EQ(header.parameters.codec.lit_ctx_bits, 7);
    EXPECT_EQ(header.parameters.filter_flags, 1);
    EXPECT_EQ(header.parameters.block_mb, 0x1AFE);
    EXPECT_EQ(header.parameters.codec.hash_bits, 0x4B3B2B1B);
    EXPECT_EQ(header.parameters.codec.chain_bits, 0x38281808);
}

TEST(container, each_magic_letter_is_checked_but_not_the_byte_before)
{
    file_header header{};
    for (const usize letter : {1U, 2U, 3U}) {
        header_bytes bytes = header_image;
        bytes[letter] ^= 0x20; // the other case
        EXPECT_FALSE(unpack_file_header(bytes, header)) << letter;
    }
    header_bytes bytes = header_image;
    bytes[0] = 0xFF;
    EXPECT_TRUE(unpack_file_header(bytes, header));
}

TEST(container, nothing_else_of_a_header_is_checked)
{
    header_bytes bytes;
    bytes.fill(0xFF);
    bytes[1] = 'Q';
    bytes[2] = 'R';
    bytes[3] = '0';
    file_header header{};
    ASSERT_TRUE(unpack_file_header(bytes, header));
    EXPECT_EQ(header.original_size, ~u64{0});
    EXPECT_EQ(header.parameters.codec.method, 255);
    EXPECT_EQ(header.parameters.codec.hash_bits, -1);
}

TEST(container, record_head_is_the_size_and_the_displacement)
{
    std::array<u8, 7> memory;
    memory.fill(0xEE);
    pack_record_head(&memory[1], {0x89ABCDEF, 0x42});
    EXPECT_EQ(memory, (std::array<u8, 7>{0xEE, 0xEF, 0xCD, 0xAB, 0x89, 0x42, 0xEE}));
    const record_head head = unpack_record_head(&memory[1]);
    EXPECT_EQ(head.size, 0x89ABCDEFU);
    EXPECT_EQ(head.displacement, 0x42);
}

struct displacement_case {
    i32 distance;
    u8 byte;
};

constexpr displacement_case displacements[] = {
    {0, 0}, {1, 2}, {-1, 3}, {2, 4}, {-2, 5}, {120, 240}, {-120, 0xF1}, {127, 0xFE}, {-127, 0xFF},
};

TEST(container, displacement_byte_is_twice_the_distance_plus_the_sign)
{
    for (const auto& [distance, byte] : displacements) {
        constexpr u32 sequence = 1000;
        EXPECT_EQ(displacement_byte(sequence + static_cast<u32>(distance), sequence), byte)
            << distance;
    }
}

TEST(container, displacement_byte_is_inverted_by_displaced_index)
{
    for (const auto& [distance, byte] : displacements) {
        EXPECT_EQ(displaced_index(byte, 1000), 1000 + distance);
    }
}

TEST(container, displacement_is_correct_at_the_first_and_last_sequence_numbers)
{
    EXPECT_EQ(displacement_byte(0xFFFFFFFF, 0xFFFFFFFF), 0);
    EXPECT_EQ(displacement_byte(0xFFFFFF80, 0xFFFFFFFF), 0xFF);
    EXPECT_EQ(displacement_byte(0, 127), 0xFF);
    EXPECT_EQ(displaced_index(0xFF, 0), -127);
    EXPECT_EQ(displaced_index(1, 0), 0); // minus zero
    EXPECT_EQ(displaced_index(0xFE, 0xFFFFFFFF), 0x1'0000'007E);
}

constexpr u64 B = u64{32} << 20;
constexpr u64 max_size = ~u64{0};

TEST(container, count_blocks_is_the_ceiling_of_the_quotient)
{
    EXPECT_EQ(count_blocks(0, B), 0U);
    EXPECT_EQ(count_blocks(1, B), 1U);
    EXPECT_EQ(count_blocks(B - 1, B), 1U);
    EXPECT_EQ(count_blocks(B, B), 1U);
    EXPECT_EQ(count_blocks(B + 1, B), 2U);
    EXPECT_EQ(count_blocks(7 * B, B), 7U);
    EXPECT_EQ(count_blocks(7 * B + 1, B), 8U);
}

TEST(container, count_blocks_does_not_overflow_near_two_to_the_64)
{
    EXPECT_EQ(count_blocks(max_size, B), u64{1} << 39);
    EXPECT_EQ(count_blocks(max_size - B, B), (u64{1} << 39) - 1);
    EXPECT_EQ(count_blocks(max_size, 1), max_size);
}

TEST(container, the_last_block_has_the_remaining_length)
{
    EXPECT_EQ(block_length(0, B, 0), 0U);
    EXPECT_EQ(block_length(1, B, 0), 1U);
    EXPECT_EQ(block_length(B - 1, B, 0), B - 1);
    EXPECT_EQ(block_length(B + 1, B, 0), B);
    EXPECT_EQ(block_length(B + 1, B, 1), 1U);
}

TEST(container, the_last_block_of_an_exact_multiple_is_full)
{
    EXPECT_EQ(block_length(B, B, 0), B);
    EXPECT_EQ(block_length(7 * B, B, 5), B);
    EXPECT_EQ(block_length(7 * B, B, 6), B);
}

TEST(container, block_length_does_not_overflow_near_two_to_the_64)
{
    EXPECT_EQ(block_length(max_size, B, (u64{1} << 39) - 1), B - 1);
    EXPECT_EQ(block_length(max_size, B, (u64{1} << 39) - 2), B);
    EXPECT_EQ(block_length(max_size, max_size, 0), max_size);
}

TEST(container, suffix_is_case_insensitive)
{
    for (const char* const name : {"a.qrx", "a.QRX", "a.qRx", "a.QrX", "dir/.qrx", ".qrx"}) {
        EXPECT_TRUE(has_suffix(name)) << name;
    }
}

TEST(container, other_names_lack_the_suffix)
{
    for (const char* const name :
         {"", "x", "qrx", "a_qrx", "a.qrx ", "a.qrx.gz", "a.qr", "a.qry", "a\x0eqrx", "a.\x11rx"}) {
        EXPECT_FALSE(has_suffix(name)) << name;
    }
}

} // namespace
} // namespace quarnex
