#include "format/records.h"

#include <array>
#include <gtest/gtest.h>

namespace quarnex {
namespace {

constexpr u64 mib = u64{1} << 20;
constexpr u32 max_u32 = UINT32_MAX;
constexpr std::array<u8, 3> unknown_methods{0, 6, 255};

file_header header_of(u64 size, u16 block_mb, u8 method = 3, u8 level = 6)
{
    file_header header{};
    header.original_size = size;
    header.parameters.codec.method = method;
    header.parameters.codec.level = level;
    header.parameters.block_mb = block_mb;
    return header;
}

file_layout layout_of(u64 size, u16 block_mb, u8 method = 3)
{
    return lay_out(header_of(size, block_mb, method)).value();
}

// lay_out()

TEST(lay_out, copies_the_parameters_and_the_size)
{
    file_header header = header_of(5 * mib, 2);
    header.parameters.codec.lit_ctx_bits = 7;
    header.parameters.codec.hash_bits = 20;
    header.parameters.codec.chain_bits = 5;
    header.parameters.filter_flags = 2;
    const file_layout layout = lay_out(header).value();
    EXPECT_EQ(layout.original_size, 5 * mib);
    EXPECT_EQ(layout.parameters.codec.method, 3);
    EXPECT_EQ(layout.parameters.codec.level, 6);
    EXPECT_EQ(layout.parameters.codec.lit_ctx_bits, 7);
    EXPECT_EQ(layout.parameters.codec.hash_bits, 20);
    EXPECT_EQ(layout.parameters.codec.chain_bits, 5);
    EXPECT_EQ(layout.parameters.filter_flags, 2);
    EXPECT_EQ(layout.parameters.block_mb, 2);
}

TEST(lay_out, counts_the_blocks_of_a_file)
{
    EXPECT_EQ(layout_of(1, 1).block_count, 1U);
    EXPECT_EQ(layout_of(mib, 1).block_count, 1U);
    EXPECT_EQ(layout_of(mib + 1, 1).block_count, 2U);
    EXPECT_EQ(layout_of(64 * mib, 32).block_count, 2U);
    EXPECT_EQ(layout_of(64 * mib + 1, 32).block_count, 3U);
}

TEST(lay_out, an_empty_file_has_no_block_and_one_record)
{
    EXPECT_EQ(layout_of(0, 32).block_count, 0U);
    EXPECT_EQ(layout_of(0, 32).record_count(), 1U);
}

TEST(lay_out, other_files_have_one_record_per_block)
{
    EXPECT_EQ(layout_of(1, 32).record_count(), 1U);
    EXPECT_EQ(layout_of(100 * mib, 32).record_count(), 4U);
}

TEST(lay_out, rejects_levels_above_9)
{
    for (u32 level = 0; level < 256; ++level) {
        const bool accepted = lay_out(header_of(1, 1, 3, static_cast<u8>(level))).has_value();
        EXPECT_EQ(accepted, level <= 9) << level;
    }
}

TEST(lay_out, rejects_a_block_size_of_0)
{
    EXPECT_FALSE(lay_out(header_of(1, 0)));
    EXPECT_FALSE(lay_out(header_of(0, 0)));
    EXPECT_TRUE(lay_out(header_of(1, 1)));
    EXPECT_TRUE(lay_out(header_of(1, 0xFFFF)));
}

TEST(lay_out, accepts_unknown_methods_because_stored_blocks_need_none)
{
    for (const u8 method : unknown_methods)
        EXPECT_TRUE(lay_out(header_of(1, 1, method))) << +method;
}

TEST(lay_out, clamps_the_number_of_blocks_to_32_bits)
{
    EXPECT_EQ(layout_of((u64{max_u32} - 1) * mib, 1).block_count, max_u32 - 1);
    EXPECT_EQ(layout_of(u64{max_u32} * mib, 1).block_count, max_u32);
    EXPECT_EQ(layout_of(u64{max_u32} * mib + 1, 1).block_count, max_u32);
    EXPECT_EQ(layout_of(~u64{0}, 1).block_count, max_u32);
}

// find_block()

/// Expects that a record restores a block.
void expect_block(const file_layout& layout, const record_head& head, u32 sequence, u32 index,
                  u32 length)
{
    const auto block = find_block(layout, head, sequence);
    ASSERT_TRUE(block);
    EXPECT_EQ(block->index, index);
    EXPECT_EQ(block->length, length);
}

TEST(find_block, a_record_without_displacement_restores_the_block_of_its_number)
{
    const file_layout layout = layout_of(3 * mib + 5, 1);
    for (u32 k = 0; k < 3; ++k) expect_block(layout, {100, 0}, k, k, mib);
}

TEST(find_block, the_last_block_has_the_remaining_length)
{
    expect_block(layout_of(3 * mib + 5, 1), {4, 0}, 3, 3, 5);
    expect_block(layout_of(3 * mib, 1), {4, 0}, 2, 2, mib);
    expect_block(layout_of(7, 32), {4, 0}, 0, 0, 7);
}

TEST(find_block, the_displacement_is_added_to_the_sequence_number)
{
    const file_layout layout = layout_of(3 * mib + 5, 1);
    expect_block(layout, {4, displacement_byte(3, 0)}, 0, 3, 5);
    expect_block(layout, {4, displacement_byte(0, 3)}, 3, 0, mib);
    expect_block(layout, {4, displacement_byte(1, 2)}, 2, 1, mib);
}

TEST(find_block, rejects_an_index_before_the_first_block)
{
    const file_layout layout = layout_of(3 * mib, 1);
    expect_block(layout, {4, displacement_byte(0, 1)}, 1, 0, mib);
    EXPECT_FALSE(find_block(layout, {4, displacement_byte(0, 1)}, 0));
    EXPECT_FALSE(find_block(layout, {4, 0xFF}, 2));
}

TEST(find_block, rejects_an_index_after_the_last_block)
{
    const file_layout layout = layout_of(3 * mib, 1);
    expect_block(layout, {4, displacement_byte(1, 0)}, 1, 2, mib);
    EXPECT_FALSE(find_block(layout, {4, displacement_byte(1, 0)}, 2));
    EXPECT_FALSE(find_block(layout, {4, 0xFE}, 0));
}

TEST(find_block, rejects_more_records_than_blocks_even_with_an_index_inside)
{
    const file_layout layout = layout_of(3 * mib, 1);
    EXPECT_FALSE(find_block(layout, {4, 0}, 3));
    EXPECT_FALSE(find_block(layout, {4, displacement_byte(2, 3)}, 3));
    EXPECT_FALSE(find_block(layout, {4, displacement_byte(0, 4)}, 4));
}

TEST(find_block, with_a_clamped_count_the_last_sequence_number_is_rejected)
{
    const file_layout layout = layout_of(~u64{0}, 1);
    expect_block(layout, {4, 0}, max_u32 - 1, max_u32 - 1, mib);
    EXPECT_FALSE(find_block(layout, {4, 0}, max_u32));
    EXPECT_FALSE(find_block(layout, {4, displacement_byte(1, 0)}, max_u32 - 1));
}

TEST(find_block, the_record_of_an_empty_file_is_stored_and_empty)
{
    const file_layout layout = layout_of(0, 32);
    expect_block(layout, {0, 0}, 0, 0, 0);
    EXPECT_FALSE(find_block(layout, {1, 0}, 0)) << "a payload";
    EXPECT_FALSE(find_block(layout, {0, displacement_byte(1, 0)}, 0)) << "another index";
    EXPECT_FALSE(find_block(layout, {0, 0}, 1)) << "a second record";
}

TEST(find_block, rejects_a_payload_longer_than_its_block)
{
    const file_layout layout = layout_of(mib + 5, 1);
    expect_block(layout, {mib, 0}, 0, 0, mib);
    EXPECT_FALSE(find_block(layout, {mib + 1, 0}, 0));
    expect_block(layout, {5, 0}, 1, 1, 5);
    EXPECT_FALSE(find_block(layout, {6, 0}, 1));
    EXPECT_FALSE(find_block(layout, {max_u32, 0}, 1));
}

TEST(find_block, accepts_an_empty_payload)
{
    expect_block(layout_of(5, 1), {0, 0}, 0, 0, 5); // the decoder finds the block too short
}

TEST(find_block, with_an_unknown_method_only_stored_blocks_are_accepted)
{
    for (const u8 method : unknown_methods) {
        const file_layout layout = layout_of(mib + 5, 1, method);
        expect_block(layout, {mib, 0}, 0, 0, mib);
        expect_block(layout, {5, 0}, 1, 1, 5);
        EXPECT_FALSE(find_block(layout, {mib - 1, 0}, 0)) << +method;
        EXPECT_FALSE(find_block(layout, {0, 0}, 1)) << +method;
    }
    for (u8 method = first_method; method <= last_method; ++method) {
        expect_block(layout_of(mib + 5, 1, method), {mib - 1, 0}, 0, 0, mib);
    }
}

TEST(find_block, rejects_blocks_above_2_to_the_31_minus_1_bytes)
{
    constexpr u64 max_length = INT32_MAX;
    expect_block(layout_of(max_length, 2048), {4, 0}, 0, 0, INT32_MAX);
    EXPECT_FALSE(find_block(layout_of(max_length + 1, 2048), {4, 0}, 0));
    EXPECT_FALSE(find_block(layout_of(max_length + 1, 0xFFFF), {4, 0}, 0));
    // The rule is on a block's length, not on the block size of the file.
    expect_block(layout_of(2048 * mib + 5, 2048), {4, 0}, 1, 1, 5);
    expect_block(layout_of(1000, 0xFFFF), {4, 0}, 0, 0, 1000);
}

} // namespace
} // namespace quarnex
