#include "format/filters.h"

#include "plain/plain_filters.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace quarnex::test {
namespace {

/// The result of a filter, in a buffer that ends at the block's end.
bytes filtered(u8 flags, const bytes& block, filter_use use)
{
    bytes data(block);
    run_filter(flags, data, use);
    return data;
}

struct known_answer {
    bytes plain;
    bytes filtered;
};

void expect_known(u8 flags, const known_answer& known)
{
    EXPECT_EQ(filtered(flags, known.plain, filter_use::apply), known.filtered);
    EXPECT_EQ(filtered(flags, known.filtered, filter_use::undo), known.plain);
}

void expect_unchanged(u8 flags, const bytes& block)
{
    expect_known(flags, {block, block});
}

/// Compares each filter with the plain one in both directions, and checks that they are inverse.
void expect_plain(const bytes& block)
{
    for (const bool encoding : {true, false}) {
        const filter_use use = encoding ? filter_use::apply : filter_use::undo;
        const filter_use inverse = encoding ? filter_use::undo : filter_use::apply;
        for (const u8 flags : {filter_x86, filter_delta}) {
            const auto plain = flags == filter_x86 ? plain_x86_filter : plain_delta_filter;
            const bytes result = filtered(flags, block, use);
            ASSERT_EQ(result, plain(block, encoding)) << "filter " << int{flags};
            ASSERT_EQ(filtered(flags, result, inverse), block) << "filter " << int{flags};
        }
    }
}

// x86, calculated by hand

TEST(x86_filter, the_end_of_a_branch_is_added_to_its_operand)
{
    expect_known(filter_x86, {{0xE8, 0, 0, 0, 0}, {0xE8, 5, 0, 0, 0}});
    expect_known(filter_x86, {{0x90, 0x90, 0x90, 0xE9, 0x10, 0, 0, 0}, // at 3: 0x10 + 8
                              {0x90, 0x90, 0x90, 0xE9, 0x18, 0, 0, 0}});
}

TEST(x86_filter, operands_are_signed_numbers_of_25_bits)
{
    expect_known(filter_x86, {{0xE9, 0xFB, 0xFF, 0xFF, 0xFF}, {0xE9, 0, 0, 0, 0}}); // -5 + 5
    expect_known(filter_x86, {{0xE8, 0xFA, 0xFF, 0xFF, 0xFF}, {0xE8, 0xFF, 0xFF, 0xFF, 0xFF}});
    // 0x00FFFFFF + 5 = 0x01000004, whose bit 24 is the sign.
    expect_known(filter_x86, {{0xE8, 0xFF, 0xFF, 0xFF, 0x00}, {0xE8, 0x04, 0, 0, 0xFF}});
    // -0x01000000 + 5 = 0xFF000005
    expect_known(filter_x86, {{0xE8, 0, 0, 0, 0xFF}, {0xE8, 5, 0, 0, 0xFF}});
}

TEST(x86_filter, an_operand_without_a_sign_in_its_top_byte_is_unchanged)
{
    for (const u8 top : bytes{0x01, 0x7F, 0x80, 0xFE}) {
        expect_unchanged(filter_x86, {0xE8, 1, 2, 3, top, 0x90, 0x90, 0x90, 0x90});
    }
}

TEST(x86_filter, an_opcode_inside_a_converted_operand_is_skipped)
{
    expect_known(filter_x86, {{0xE8, 0xE8, 0xE9, 0x00, 0x00, 0x90, 0x90, 0x90},
                              {0xE8, 0xED, 0xE9, 0x00, 0x00, 0x90, 0x90, 0x90}});
    // The opcode right after the operand is converted on its own: at 5, 0 + 10.
    expect_known(filter_x86,
                 {{0xE8, 0, 0, 0, 0, 0xE8, 0, 0, 0, 0}, {0xE8, 5, 0, 0, 0, 0xE8, 10, 0, 0, 0}});
}

TEST(x86_filter, after_one_skipped_opcode_a_branch_is_still_converted)
{
    // At 0 the top byte is 0x30; at 1 it is 0x00, and 0x00302010 + 6 keeps the 0x30.
    expect_known(filter_x86,
                 {{0xE8, 0xE8, 0x10, 0x20, 0x30, 0x00}, {0xE8, 0xE8, 0x16, 0x20, 0x30, 0x00}});
}

TEST(x86_filter, the_byte_that_made_an_opcode_skipped_never_becomes_a_sign)
{
    // At 1: 0x00FEFFFF + 6 = 0x00FF0005 has a sign instead of 0xFE.  So its low 24 bits are
    // complemented, to 0x0000FFFA, and 6 is added again: 0x00010000.
    expect_known(filter_x86,
                 {{0xE8, 0xE8, 0xFF, 0xFF, 0xFE, 0x00}, {0xE8, 0xE8, 0x00, 0x00, 0x01, 0x00}});
    // The skipped opcode two bytes before: the byte is the third highest, 16 bits are complemented.
    // At 2: 0x0000FEFF + 7 = 0xFF06; complemented 0x00F9, and plus 7 0x0100.
    expect_known(filter_x86, {{0xE8, 0x90, 0xE8, 0xFF, 0xFE, 0x00, 0x00},
                              {0xE8, 0x90, 0xE8, 0x00, 0x01, 0x00, 0x00}});
    // Three bytes before: 8 bits.  At 3: 0xFE + 8 = 0x106, whose low byte is no sign; 0xF7 + 8 =
    // 0xFF is one; complemented 0x00, and plus 8 0x08.
    expect_known(filter_x86, {{0xE8, 0x90, 0x90, 0xE8, 0xFE, 0, 0, 0},
                              {0xE8, 0x90, 0x90, 0xE8, 0x06, 1, 0, 0}});
    expect_known(filter_x86, {{0xE8, 0x90, 0x90, 0xE8, 0xF7, 0, 0, 0},
                              {0xE8, 0x90, 0x90, 0xE8, 0x08, 0, 0, 0}});
}

TEST(x86_filter, after_two_skipped_opcodes_a_branch_is_unchanged)
{
    // 0, 1 and 2 are skipped; 2 although its top byte is 0x00, as two were skipped before it.
    expect_unchanged(filter_x86, {0xE8, 0xE8, 0xE8, 0x11, 0x22, 0x33, 0x00, 0x90, 0x90});
}

TEST(x86_filter, after_a_skipped_opcode_with_a_sign_a_branch_is_unchanged)
{
    // The opcode at 2 was skipped because of the two before it; its top byte, 0x00, is a sign.
    expect_unchanged(filter_x86, {0xE8, 0xE8, 0xE8, 0x11, 0x22, 0xE8, 0x00, 0x33, 0x44, 0x00});
}

TEST(x86_filter, a_skipped_opcode_has_no_effect_four_bytes_later)
{
    expect_known(filter_x86,
                 {joined({{0xE8, 0x90, 0x90, 0x90, 0xE8}, {0xFE, 0, 0, 0}}),
                  joined({{0xE8, 0x90, 0x90, 0x90, 0xE8}, {0x07, 1, 0, 0}})}); // 0xFE + 9
}

TEST(x86_filter, blocks_of_up_to_4_bytes_are_unchanged)
{
    for (usize size = 0; size <= 4; ++size) {
        for (const u8 rest : bytes{0x00, 0xFF, 0xE8}) {
            bytes block(size, rest);
            expect_unchanged(filter_x86, block);
            if (size != 0) block[0] = 0xE8;
            expect_unchanged(filter_x86, block);
        }
    }
}

TEST(x86_filter, opcodes_in_the_last_four_bytes_are_unchanged)
{
    for (usize size = 5; size <= 40; ++size) {
        for (usize from_end = 1; from_end <= 4; ++from_end) {
            bytes block(size);
            block[size - from_end] = 0xE8;
            expect_unchanged(filter_x86, block);
        }
    }
}

// Both filters, compared with the plain ones

TEST(filters, every_block_of_nine_bytes_from_an_alphabet_of_four)
{
    for (const bytes& alphabet : {bytes{0xE8, 0x00, 0xFF, 0xFE}, bytes{0xE9, 0x00, 0x01, 0xF8}}) {
        for (u32 number = 0; number < 1U << 18; ++number) {
            bytes block(9);
            for (usize i = 0; i < 9; ++i) block[i] = alphabet[number >> (2 * i) & 3];
            expect_plain(block);
            if (HasFatalFailure()) return;
        }
    }
}

TEST(filters, branches_at_any_of_the_last_eight_positions)
{
    for (usize size = 8; size <= 24; ++size) {
        for (u32 positions = 0; positions < 256; ++positions) {
            for (const u8 rest : bytes{0x00, 0xFF, 0x42}) {
                bytes block(size, rest);
                for (usize bit = 0; bit < 8; ++bit) {
                    if ((positions >> bit & 1) != 0) block[size - 1 - bit] = 0xE8 + bit % 2;
                }
                expect_plain(block);
                if (HasFatalFailure()) return;
            }
        }
    }
}

/// Bytes that reach all cases of the x86 filter, `any_of_16` sixteenths of them arbitrary.
bytes branchy_block(usize size, u32 any_of_16, random_source& random)
{
    static const bytes often{0xE8, 0xE9, 0x00, 0xFF, 0xE8, 0x00, 0xFE, 0x01};
    bytes block(size);
    for (u8& byte : block) {
        byte = random.below(16) < any_of_16 ? static_cast<u8>(random.next())
                                            : often[random.below(static_cast<u32>(often.size()))];
    }
    return block;
}

TEST(filters, blocks_rich_in_branches_of_all_sizes)
{
    random_source random(1);
    for (usize size = 0; size <= 40; ++size) {
        for (u32 round = 0; round < 400; ++round) {
            expect_plain(branchy_block(size, round % 17, random));
            if (HasFatalFailure()) return;
        }
    }
    for (u32 round = 0; round < 300; ++round) {
        expect_plain(branchy_block(41 + random.below(20000), round % 17, random));
        if (HasFatalFailure()) return;
    }
}

TEST(filters, blocks_of_all_shapes)
{
    for (const shape& kind : all_shapes()) {
        SCOPED_TRACE(kind.name);
        for (const usize size : {1000U, 100001U, 300002U}) expect_plain(kind.make(size, size));
    }
}

TEST(filters, a_block_of_more_than_16_mib)
{
    expect_plain(find_shape("machine_code").make((usize{17} << 20) + 1, 3));
}

TEST(filters, change_no_byte_around_the_block_at_any_alignment)
{
    random_source random(2);
    for (usize front = 1; front <= 16; ++front) {
        for (usize size = 0; size <= 40; ++size) {
            const bytes block = branchy_block(size, 2, random);
            const bytes around(16, 0xE8);
            for (const u8 flags : {filter_x86, filter_delta}) {
                bytes buffer = joined({bytes(front, 0xE8), block, around});
                run_filter(flags, {buffer.data() + front, size}, filter_use::apply);
                ASSERT_EQ(buffer, joined({bytes(front, 0xE8),
                                          filtered(flags, block, filter_use::apply), around}));
            }
        }
    }
}

// Delta

TEST(delta_filter, each_byte_becomes_its_difference_from_the_one_three_before)
{
    expect_known(filter_delta, {{1, 2, 3, 4, 7, 10, 4, 8, 15}, {1, 2, 3, 3, 5, 7, 0, 1, 5}});
}

TEST(delta_filter, differences_wrap_around)
{
    expect_known(filter_delta, {{0xFF, 0x00, 0x80, 0x00, 0xFF, 0x7F}, //
                                {0xFF, 0x00, 0x80, 0x01, 0xFF, 0xFF}});
}

TEST(delta_filter, one_or_two_bytes_after_the_last_group_are_unchanged)
{
    expect_unchanged(filter_delta, {});
    expect_unchanged(filter_delta, {9});
    expect_unchanged(filter_delta, {9, 8});
    expect_known(filter_delta, {{1, 1, 1, 1, 1, 1, 1}, {1, 1, 1, 0, 0, 0, 1}});
    expect_known(filter_delta, {{1, 1, 1, 1, 1, 1, 1, 1}, {1, 1, 1, 0, 0, 0, 1, 1}});
}

// Selection

TEST(run_filter, the_low_nibble_selects_the_filter_and_only_1_and_2_are_filters)
{
    const bytes block = find_shape("machine_code").make(1000, 1);
    for (u32 flags = 0; flags < 256; ++flags) {
        const u32 nibble = flags & 0x0F;
        const bytes expected = nibble == 1   ? plain_x86_filter(block, true)
                               : nibble == 2 ? plain_delta_filter(block, true)
                                             : block;
        EXPECT_EQ(filtered(static_cast<u8>(flags), block, filter_use::apply), expected) << flags;
        EXPECT_EQ(filtered(static_cast<u8>(flags), expected, filter_use::undo), block) << flags;
    }
}

} // namespace
} // namespace quarnex::test
