#include "method2/m2_codec.h"

#include "method2/m2_streams.h"
#include "support/codec_runs.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::bytes_of;
using test::m2_block;
using test::m2_plain_writer;

/// The last level of one dialect, the first of the other.
constexpr std::array<u32, 2> dialects{7, 8};

constexpr u32 shortest_match(u32 level)
{
    return level < 8 ? 4 : 3;
}

codec_parameters parameters_at(u32 level)
{
    return test::parameters_of(2, static_cast<u8>(level));
}

/// Decodes a payload that other bytes follow into a buffer that is not zero.  Nothing past the
/// block may change.
bytes decode_among_others(const codec_entry& decoder, bytes payload, usize length, u32 level)
{
    constexpr u8 other = 0xA5;
    codec_job job;
    job.parameters = parameters_at(level);
    job.in_len = static_cast<u32>(payload.size());
    job.out_len = static_cast<u32>(length);
    constexpr usize others = 4096;
    payload.resize(payload.size() + others, other);
    bytes out(length + others, other);
    job.in_buf = payload.data();
    job.out_buf = out.data();
    scratch memory(system_allocator);
    job.memory = &memory;
    const u32 length_made = decoder.run(job, decoder.init(job)).length;
    EXPECT_EQ(std::count(out.end() - others, out.end(), other), i64{others});
    EXPECT_LE(length_made, length);
    out.resize(length_made);
    return out;
}

/// Decodes a payload with the decoder for this processor and the portable one, which must agree,
/// whatever surrounds it.
bytes decode(const bytes& payload, usize length, u32 level)
{
    const bytes out = test::decode_with(m2_decoder, payload, length, parameters_at(level));
    for (const codec_entry* decoder : {&m2_decoder, &m2_portable_decoder})
        EXPECT_TRUE(decode_among_others(*decoder, payload, length, level) == out);
    EXPECT_TRUE(test::decode_with(m2_portable_decoder, payload, length, parameters_at(level)) ==
                out);
    return out;
}

bytes first_of(const bytes& all, usize count)
{
    return {all.begin(), all.begin() + static_cast<i64>(count)};
}

void expect_decoded(const m2_block& block)
{
    EXPECT_TRUE(decode(block.stream(), block.size(), block.level()) == block.data());
    // A full block is right without its end token.
    EXPECT_TRUE(decode(block.writer().out, block.size(), block.level()) == block.data());
}

/// Returns the writer of a stream that starts with an 'a'.
m2_plain_writer writer(u32 level = 7)
{
    return {'a', level};
}

// Streams worked by hand

TEST(m2_decoder, decodes_the_smallest_stream_a_byte_and_the_end_token)
{
    for (const u32 level : dialects) EXPECT_EQ(decode({'A', 0b0001111'0}, 1, level), bytes_of("A"));
}

TEST(m2_decoder, decodes_no_token_for_a_block_of_one_byte)
{
    EXPECT_EQ(decode({'A', 0b1'0100001, 0b0'0001111}, 1, 7), bytes_of("A"));
    EXPECT_EQ(decode({'A'}, 1, 7), bytes_of("A"));
}

TEST(m2_decoder, yields_nothing_from_an_empty_payload_or_for_an_empty_block)
{
    EXPECT_TRUE(decode({}, 10, 7).empty());
    EXPECT_TRUE(decode({'A', 0xFF, 0xFF}, 0, 7).empty());
}

TEST(m2_decoder, copies_overlapping_matches)
{
    // Literals 'b' and 'c', then six bytes from distance 3.
    const bytes stream = writer()
                             .put(0b1'01100010, 9)
                             .put(0b1'01100011, 9)
                             .put(0b00101'00000'0010, 14)
                             .put(0b0001111, 7)
                             .out;
    EXPECT_EQ(decode(stream, 9, 8), bytes_of("abcabcabc"));
    EXPECT_EQ(decode(stream, 10, 0), bytes_of("abcabcabca")); // where it has seven
}

TEST(m2_decoder, changes_the_dialect_between_levels_7_and_8)
{
    const bytes stream = writer().put(0b010'00000'0000, 12).put(0b0001111, 7).out;
    for (u32 level = 0; level <= 7; ++level) EXPECT_EQ(decode(stream, 9, level), bytes_of("aaaaa"));
    for (u32 level = 8; level <= 9; ++level) EXPECT_EQ(decode(stream, 9, level), bytes_of("aaaa"));
}

TEST(m2_decoder, decodes_code_13_as_a_byte_run_or_a_match_of_14_by_the_dialect)
{
    // 0001101 00000000 010 and the literal E0, or 0001101 00000 0000 and the literal 'x'.
    const bytes stream{'a', 0b00011010, 0b00000000, 0b10111100, 0b00001111};
    EXPECT_EQ(decode(stream, 3, 7), (bytes{'a', 0, 0xE0}));
    EXPECT_EQ(decode(stream, 16, 8), bytes_of("aaaaaaaaaaaaaaax"));
}

TEST(m2_decoder, decodes_a_literal_run_of_12_from_a_count_of_one_bit)
{
    m2_plain_writer stream = writer().put(0b0001110'1, 8);
    for (const u8 byte : bytes_of("bcdefghijklm")) stream.put(byte, 8);
    stream.put(0b0001111, 7);
    for (const u32 level : dialects)
        EXPECT_EQ(decode(stream.out, 99, level), bytes_of("abcdefghijklm"));
}

TEST(m2_decoder, decodes_code_16_as_a_match_of_15)
{
    const bytes stream = writer().put(0b000010000'00000'0000, 18).put(0b0001111, 7).out;
    for (const u32 level : dialects) EXPECT_EQ(decode(stream, 99, level), bytes(16, 'a'));
}

// Literals

TEST(m2_decoder, decodes_any_number_of_literals_before_and_after_matches)
{
    for (const u32 level : dialects) {
        for (u32 count = 0; count <= 20; ++count) {
            m2_block block = m2_block(level).literals(40);
            for (u32 n = 0; n < 20; ++n) block.literals(count).match(4 + n, 17 + n);
            expect_decoded(block);
        }
    }
}

TEST(m2_decoder, decodes_any_number_of_literals_at_the_end_of_the_block)
{
    for (const u32 level : dialects) {
        for (u32 count = 0; count <= 20; ++count) {
            expect_decoded(m2_block(level).literals(count));
            expect_decoded(m2_block(level).match(5, 1).literals(count));
            expect_decoded(m2_block(level).literals(20).match(300, 18).literals(count));
        }
    }
}

// Matches

TEST(m2_decoder, decodes_every_short_length_at_every_short_distance)
{
    for (const u32 level : dialects) {
        for (u32 dist = 1; dist <= 40; ++dist) {
            m2_block block = m2_block(level).literals(40);
            for (u32 len = shortest_match(level); len <= 40; ++len)
                block.literals(len % 4).match(len, dist);
            expect_decoded(block);
        }
    }
}

TEST(m2_decoder, decodes_every_short_length_at_the_end_of_the_block)
{
    for (const u32 level : dialects) {
        for (u32 dist = 1; dist <= 40; ++dist) {
            for (u32 len = shortest_match(level); len <= 40; ++len)
                expect_decoded(m2_block(level).literals(39).match(len, dist));
        }
    }
}

TEST(m2_decoder, decodes_lengths_around_every_width_of_a_code)
{
    for (const u32 level : dialects) {
        for (u32 width = 3; width <= 20; ++width) {
            m2_block block = m2_block(level).literals(50);
            for (const u32 dist : {40U, 16U, 15U, 3U, 2U, 1U}) {
                for (u32 len = (1U << width) - 2; len <= (1U << width) + 1; ++len)
                    block.match(len, dist).literals(2);
                if (width > 14) break; // one distance is enough for these
            }
            expect_decoded(block.match(70000, 41));
        }
    }
}

TEST(m2_decoder, decodes_every_class_with_its_smallest_and_largest_extra_bits)
{
    for (const u32 level : dialects) {
        m2_block block = m2_block(level).literals(100).match(9 << 20, 97).literals(99);
        for (u32 dist_class = 0; dist_class < 31; ++dist_class) {
            const u32 largest = (1U << test::m2_plain_extra_bits(dist_class)) - 1;
            block.match_in_class(4 + dist_class, dist_class, 0).literals(3);
            block.match_in_class(14, dist_class, largest).literals(1);
            block.match_in_class(200 + dist_class, dist_class, largest / 2);
        }
        expect_decoded(block.match_in_class(20, 31, 0).match_in_class(9, 31, 1U << 19));
    }
}

TEST(m2_decoder, decodes_the_longest_distance_and_some_that_no_encoder_sends)
{
    constexpr u32 longest = 1 << 25;
    m2_block block = m2_block(8).literals(100).match(longest, 97).literals(50);
    block.match(6, longest - 1).match(40, longest).match(7, longest + 1).match(30, block.size());
    expect_decoded(block);
}

TEST(m2_decoder, decodes_distances_of_class_14_inside_class_15)
{
    for (const u32 level : dialects) {
        m2_block block = m2_block(level).literals(6200);
        for (const u32 extra : {0U, 31U, 32U, 33U, 2046U, 2047U})
            block.match_in_class(9, 14, extra);
        for (const u32 dist : {4064U, 4065U, 4066U, 4095U, 4096U, 4097U, 4098U})
            block.match(7, dist).literals(1);
        expect_decoded(block.match_in_class(20, 15, 0));
    }
}

// A pass of the decoder takes up to three literals and a match if they fit in one window.

/// Adds matches until the stream ends at bit `bit_of_byte` of a byte.
void add_matches_to(u32 bit_of_byte, m2_block& block)
{
    // A match of 3 + 5 + 5 bits.
    while (block.stream_bits() % 8 != bit_of_byte) block.match(3, 33);
}

/// Returns a length whose code has `zeros` leading zeros at level 8.
constexpr u32 length_with(u32 zeros)
{
    return zeros < 4 ? (1U << zeros) + 2 : 1U << zeros;
}

constexpr u32 match_bits(u32 zeros, u32 dist_class)
{
    return 2 * zeros + 1 + 5 + test::m2_plain_extra_bits(dist_class);
}

TEST(m2_decoder, decodes_literals_and_a_match_of_40_to_80_bits_from_any_bit_on)
{
    m2_block block = m2_block(8).literals(100).match(5 << 20, 97);
    for (u32 literals = 0; literals <= 4; ++literals) {
        for (u32 zeros = 1; zeros <= 10; ++zeros) {
            for (u32 dist_class = 0; dist_class < 30; ++dist_class) {
                const u32 bits = 9 * literals + match_bits(zeros, dist_class);
                if (bits < 40 || bits > 80) continue;
                const u32 extra = 0xAAAA'AAAA >> (32 - test::m2_plain_extra_bits(dist_class));
                for (u32 bit = 0; bit < 8; ++bit) {
                    add_matches_to(bit, block);
                    block.literals(literals);
                    block.match_in_class(length_with(zeros), dist_class, extra);
                }
            }
        }
    }
    expect_decoded(block);
}

TEST(m2_decoder, decodes_a_last_token_of_any_size_from_any_bit_on)
{
    for (u32 bit = 0; bit < 8; ++bit) {
        m2_block start = m2_block(8).literals(40).match(900, 29);
        add_matches_to(bit, start);
        for (u32 literals = 0; literals <= 8; ++literals) {
            for (u32 width = 3; width <= 12; ++width) {
                const u32 len = (1U << width) - 1;
                expect_decoded(m2_block(start).literals(literals).match(len, 31));
                expect_decoded(m2_block(start).literals(literals).match(len, 900));
            }
        }
    }
}

// Runs

TEST(m2_decoder, decodes_byte_runs_of_any_length)
{
    m2_block block(7);
    for (const u32 count : {0U, 1U, 2U, 12U, 126U, 127U, 128U, 65534U, 65535U, 70000U, 1U << 20}) {
        expect_decoded(m2_block(7).byte_run('x', count));
        block.byte_run(static_cast<u8>(count * 7), count).literals(count % 3).match(4, 1);
    }
    expect_decoded(block);
}

TEST(m2_decoder, decodes_literal_runs_of_any_length_at_the_start_of_a_stream)
{
    for (const u32 level : dialects) {
        for (const u32 count : {12U, 13U, 14U, 18U, 19U, 20U, 26U, 27U, 1000U, 65546U, 70000U}) {
            expect_decoded(m2_block(level).literal_run(count));
            expect_decoded(m2_block(level).literal_run(count).match(5, 12).literals(3));
        }
    }
}

TEST(m2_decoder, decodes_literal_runs_from_any_bit_on)
{
    for (const u32 level : dialects) {
        m2_block block(level);
        for (u32 count = 12; count < 60; ++count)
            block.literals(count % 9).literal_run(count).match(4 + count, 12);
        expect_decoded(block);
    }
}

/// Expects a block cut to any length, as both the decoders and the plain one make it of its stream.
void expect_clipped(const m2_block& block, u32 max_excess)
{
    const bytes stream = block.stream();
    for (u32 excess = 0; excess <= max_excess; ++excess) {
        const u32 size = block.size() - excess;
        const bytes expected = first_of(block.data(), size);
        ASSERT_EQ(test::m2_plain_decode(stream, size, block.level()), expected) << excess;
        ASSERT_EQ(decode(stream, size, block.level()), expected) << excess;
    }
}

TEST(m2_decoder, clips_runs_at_the_end_of_the_block)
{
    for (const u32 count : {12U, 13U, 30U, 1000U, 70000U}) {
        for (u32 literals = 0; literals < 9; ++literals) { // from any bit on
            const u32 max_excess = std::min(count - 1, 40U);
            for (const u32 level : dialects)
                expect_clipped(m2_block(level).literals(literals).literal_run(count), max_excess);
            expect_clipped(m2_block(7).literals(literals).byte_run('x', count), max_excess);
        }
    }
}

TEST(m2_decoder, ignores_tokens_after_a_clipped_run)
{
    for (const u32 level : dialects) {
        expect_clipped(m2_block(level).literals(5).literal_run(30).literals(9).match(99, 7), 130);
        if (level == 7) expect_clipped(m2_block(7).byte_run('x', 30).literal_run(50), 75);
    }
}

TEST(m2_decoder, needs_only_the_part_of_a_clipped_literal_run_that_is_in_the_block)
{
    for (const u32 level : dialects) {
        const m2_block block = m2_block(level).literals(5).literal_run(1000);
        const bytes cut = first_of(block.writer().out, block.writer().out.size() - 1);
        for (const u32 size : {7U, 20U, 500U, 1000U})
            EXPECT_EQ(decode(cut, size, level), first_of(block.data(), size)) << size;
        EXPECT_EQ(decode(cut, block.size(), level), first_of(block.data(), 6));
    }
}

TEST(m2_decoder, writes_nothing_for_an_empty_byte_run_at_the_end_of_a_stream)
{
    const bytes stream = m2_block(7).literal('b').byte_run('x', 0).stream();
    EXPECT_EQ(decode(stream, 9, 7), bytes_of("ab"));
}

// The end of the block

TEST(m2_decoder, clips_a_last_match_at_the_end_of_the_block)
{
    for (const u32 level : dialects) {
        for (const u32 len : {4U, 6U, 14U, 15U, 40U, 5000U}) {
            for (const u32 dist : {1U, 3U, 12U, 16U, 30U}) {
                for (const u32 over : {1U, 2U, 3U, 4U, 5U, len - 1}) {
                    if (over >= len) continue;
                    const m2_block block = m2_block(level).literals(30).match(len, dist);
                    const u32 size = block.size() - over;
                    EXPECT_EQ(decode(block.stream(), size, level), first_of(block.data(), size));
                }
            }
        }
    }
}

TEST(m2_decoder, ignores_tokens_after_the_end_of_the_block)
{
    for (const u32 level : dialects) {
        for (usize size = 1; size <= 45; ++size) {
            const m2_block block = m2_block(level).literals(40).match(70000, 3).literals(50);
            EXPECT_EQ(decode(block.stream(), size, level), first_of(block.data(), size));
        }
    }
}

TEST(m2_decoder, stops_at_an_early_end_token)
{
    for (const u32 level : dialects) {
        for (u32 literals = 0; literals < 8; ++literals) {
            const m2_block block = m2_block(level).literals(literals);
            for (const u8 more : {u8{0}, u8{0xFF}}) { // zeros would be a distance of 1
                const bytes stream = test::joined({block.stream(), bytes(20, more)});
                EXPECT_EQ(decode(stream, 100, level), block.data());
            }
        }
    }
}

// Any stream

TEST(m2_decoder, decodes_random_valid_streams_of_both_dialects)
{
    for (u64 seed = 1; seed <= 60; ++seed) {
        for (const u32 level : dialects) {
            const m2_block block = test::random_m2_block(seed, level, 2000);
            const bytes plain = test::m2_plain_decode(block.stream(), block.size(), level);
            ASSERT_TRUE(plain == block.data());
            expect_decoded(block);
        }
    }
}

// Corrupt streams

TEST(m2_decoder, stops_at_a_distance_that_reaches_before_the_block)
{
    for (const u32 level : dialects) {
        for (u32 literals = 0; literals < 6; ++literals) {
            for (const u32 len : {4U, 14U, 15U, 1000U}) {
                const m2_block start = m2_block(level).literals(20).match(9, 5).literals(literals);
                m2_block block(start);
                expect_decoded(block.match(len, start.size()).literals(30)); // from the first byte
                m2_plain_writer stream = start.writer();
                stream.match(len, start.size() + 1);
                for (u32 i = 0; i < 30; ++i) stream.literal('x');
                EXPECT_EQ(decode(stream.out, 2000, level), start.data());
            }
        }
    }
}

TEST(m2_decoder, stops_at_a_distance_of_each_class_that_reaches_before_the_block)
{
    for (u32 dist_class = 0; dist_class < 32; ++dist_class) {
        const u32 extra = (1U << test::m2_plain_extra_bits(dist_class)) - 1;
        const bytes stream = writer().match_in_class(9, dist_class, extra).put(~u64{0}, 64).out;
        EXPECT_EQ(decode(stream, 2000, 7), bytes_of("a"));
    }
}

/// Writes the gamma code of 2^zeros, even if that exceeds 64 bits.
void put_gamma_of_power(u32 zeros, m2_plain_writer& stream)
{
    for (u32 i = 0; i < zeros; ++i) stream.put(0, 1);
    stream.put(1, 1);
    for (u32 i = 0; i < zeros; ++i) stream.put(0, 1);
}

TEST(m2_decoder, takes_a_code_with_31_zeros_for_a_match_and_stops_at_32)
{
    for (const u32 level : dialects) {
        for (u32 literals = 0; literals < 6; ++literals) {
            for (const u32 zeros : {20U, 28U, 31U, 32U, 33U, 56U, 57U, 63U, 64U, 65U, 200U}) {
                m2_plain_writer stream = writer(level);
                for (u32 i = 0; i < literals; ++i) stream.literal('a');
                put_gamma_of_power(zeros, stream);
                stream.out.resize(100); // distance 1
                const usize size = zeros < 32 ? 1000 : 1 + literals;
                EXPECT_EQ(decode(stream.out, 1000, level), bytes(size, 'a')) << zeros;
            }
        }
    }
}

TEST(m2_decoder, clips_byte_runs_of_any_count_and_stops_at_an_invalid_one)
{
    for (const u32 zeros : {10U, 20U, 31U, 32U, 33U, 57U, 64U, 65U, 200U}) {
        m2_plain_writer stream = writer().literal('b').put(0b0001101'00000000, 15);
        put_gamma_of_power(zeros, stream);
        stream.out.resize(2000, 0xFF);
        bytes expected = bytes_of("ab");
        if (zeros < 32) expected.resize(1000, 0);
        EXPECT_EQ(decode(stream.out, 1000, 7), expected) << zeros;
    }
}

TEST(m2_decoder, stops_at_a_literal_run_of_an_invalid_count)
{
    for (const u32 zeros : {32U, 33U, 57U, 64U, 65U, 200U}) {
        m2_plain_writer stream = writer().literal('b').put(0b0001110, 7);
        put_gamma_of_power(zeros, stream);
        stream.out.resize(2000, 0xFF);
        for (const u32 level : dialects)
            EXPECT_EQ(decode(stream.out, 1000, level), bytes_of("ab")) << zeros;
    }
}

TEST(m2_decoder, yields_all_whole_tokens_of_a_payload_cut_anywhere)
{
    for (u32 seed = 1; seed <= 20; ++seed) {
        const m2_block block = test::random_m2_block(seed, dialects[seed % 2], 100);
        const bytes& stream = block.writer().out;
        for (usize size = 1; size <= stream.size(); ++size) {
            ASSERT_EQ(decode(first_of(stream, size), block.size(), block.level()),
                      first_of(block.data(), block.size_within(8 * size)))
                << size;
        }
    }
}

TEST(m2_decoder, stops_at_a_literal_run_far_longer_than_the_payload)
{
    for (const u32 level : dialects) {
        const m2_block block = m2_block(level).literals(5).literal_run(70000);
        const bytes& stream = block.writer().out;
        for (const usize size : {usize{10}, usize{20}, usize{1000}, stream.size() - 1})
            EXPECT_EQ(decode(first_of(stream, size), block.size(), level),
                      first_of(block.data(), 6));
    }
}

TEST(m2_decoder, stops_at_a_match_that_lacks_its_last_bit)
{
    for (u32 literals = 0; literals <= 4; ++literals) {
        for (u32 zeros = 1; zeros <= 14; ++zeros) {
            for (u32 dist_class = 0; dist_class <= 10; ++dist_class) {
                const u32 bits = 9 * literals + match_bits(zeros, dist_class);
                m2_block block = m2_block(8).literals(1000);
                add_matches_to((1 - bits) % 8,
                               block.match(3, 33)); // its last bit is the first of a byte
                const bytes right = block.literals(literals).data();
                block.match_in_class(length_with(zeros), dist_class, 0);
                const bytes& stream = block.writer().out;
                ASSERT_EQ(block.stream_bits() % 8, 1U);
                EXPECT_EQ(decode(first_of(stream, stream.size() - 1), block.size(), 8), right);
            }
        }
    }
}

TEST(m2_decoder, ignores_bytes_after_the_end_token)
{
    for (const u32 level : dialects) {
        const m2_block block = test::random_m2_block(3, level, 100);
        for (const u8 more : {u8{0}, u8{0xA5}, u8{0xFF}}) {
            const bytes stream = test::joined({block.stream(), bytes(100, more)});
            EXPECT_EQ(decode(stream, block.size(), level), block.data());
        }
    }
}

TEST(m2_decoder, yields_all_tokens_before_a_flipped_bit)
{
    for (u32 seed = 1; seed <= 6; ++seed) {
        const m2_block block = test::random_m2_block(seed, dialects[seed % 2], 60);
        bytes corrupt = block.stream();
        for (usize bit = 0; bit < block.stream_bits(); ++bit) {
            corrupt[bit / 8] ^= static_cast<u8>(0x80 >> bit % 8);
            const bytes out = decode(corrupt, block.size(), block.level());
            const usize right = bit < 8 ? 0 : block.size_within(bit);
            ASSERT_GE(out.size(), right) << bit;
            ASSERT_EQ(first_of(out, right), first_of(block.data(), right)) << bit;
            corrupt[bit / 8] ^= static_cast<u8>(0x80 >> bit % 8);
        }
    }
}

TEST(m2_decoder, yields_some_bytes_from_random_payloads)
{
    for (const u32 level : dialects) {
        for (usize seed = 1; seed <= 500; ++seed) {
            const bytes payload = test::find_shape("random").make(1 + seed, seed);
            EXPECT_FALSE(decode(payload, 1 + seed % 97 * 40, level).empty());
        }
        for (u32 value = 0; value < 256; ++value) {
            for (const usize size : {usize{1}, usize{2}, usize{7}, usize{400}})
                EXPECT_FALSE(decode(bytes(size, static_cast<u8>(value)), 5000, level).empty());
        }
    }
}

} // namespace
} // namespace quarnex
