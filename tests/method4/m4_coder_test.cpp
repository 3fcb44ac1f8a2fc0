#include "method4/m4_coder.h"

#include "plain/m4_plain.h"
#include "support/range_streams.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>

namespace quarnex {
namespace {

using test::bytes;
using test::coded;
using test::m4_plain_coder;
using test::m4_plain_model;
using test::random_source;
using test::with_zeros;
using test::written;

// Symbols by hand

TEST(m4_encode_freq, a_first_symbol)
{
    // The unit is FFFFFFFF >> 15 = 1FFFF: low = 4000 * 1FFFF = 7FFFC000, range = 2000 * 1FFFF.
    bytes buffer(test::stream_room);
    range_encoder encoder = start_range_encoder(buffer.data());
    m4_encode_freq(encoder, 0x4000, 0x6000);
    EXPECT_EQ(encoder.low, 0x7FFFC000U);
    EXPECT_EQ(encoder.range, 0x3FFFE000U);
    flush(encoder);
    EXPECT_EQ(written(buffer, encoder), (bytes{0x00, 0x7F, 0xFF, 0xC0, 0x00}));
}

TEST(m4_encode_freq, the_smallest_share_of_the_minimum_range_takes_two_bytes)
{
    // The unit is 1000000 >> 15 = 200, and the range 200 too.
    bytes buffer(test::stream_room);
    range_encoder encoder{buffer.data() + 1, 0x12345678, min_range};
    m4_encode_freq(encoder, 0, 1);
    EXPECT_EQ(encoder.range, 0x2000000U);
    EXPECT_EQ(encoder.low, 0x56780000U);
    EXPECT_EQ(written(buffer, encoder), (bytes{0x00, 0x12, 0x34}));
}

TEST(m4_encode_freq, a_carry_runs_through_bytes_of_0xFF)
{
    bytes buffer(test::stream_room);
    range_encoder encoder = start_range_encoder(buffer.data());
    encoder.low = 0x12FFFFFF;
    for (int i = 0; i < 3; ++i) shift_low(encoder); // 12 FF FF, and FF000000 is left
    m4_encode_freq(encoder, 0x6000, 0x6001);        // 6000 * 1FFFF = BFFFA000 more
    EXPECT_EQ(written(buffer, encoder), (bytes{0x00, 0x13, 0x00, 0x00, 0xBE}));
    EXPECT_EQ(encoder.low, 0xFFA00000U);
    EXPECT_EQ(encoder.range, 0x1FFFF00U);
}

// Symbols of a model

template <class Model>
u32 decode_freq(range_decoder& decoder, const Model& model)
{
    return m4_decode_freq(decoder, m4_locate(decoder), model);
}

TEST(m4_decode_freq, at_both_ends_of_each_share)
{
    const auto model = std::make_unique<m4_model<m4_lookup, main_symbols>>();
    m4_model_init(*model, main_symbols);
    random_source random(1);
    for (int i = 0; i < 3000; ++i)
        m4_model_step<m4_main_step>(*model, random.below(1 + random.below(288)));
    const bytes next(8, 0x55);
    for (u32 sym = 0; sym < main_symbols; ++sym) {
        for (const u32 place : {model->cum[sym] + 0U, model->cum[sym + 1] - 1U}) {
            // The unit is 1FFFF, and the code anywhere in it.
            for (const u32 inside : {0U, 0x1FFFEU}) {
                range_decoder decoder{next.data(), place * 0x1FFFF + inside};
                ASSERT_EQ(decode_freq(decoder, *model), sym) << place;
            }
        }
    }
}

TEST(m4_decode_freq, a_position_past_all_shares_changes_nothing)
{
    const auto model = std::make_unique<m4_model<m4_lookup, main_symbols>>();
    m4_model_init(*model, main_symbols); // the shares end at 32767
    const bytes next(8, 0x55);
    range_decoder decoder{next.data(), 32767U * 0x1FFFF - 1};
    EXPECT_EQ(decode_freq(decoder, *model), 287U);
    // In the minimum range positions reach 32768 + 63; in the full one a single one is too high.
    for (const range_decoder& start :
         {range_decoder{next.data(), 32767U * 0x1FFFF}, range_decoder{next.data(), 0xFFFFFFFE},
          range_decoder{next.data(), 0x1007FFE, 0x1007FFF}}) {
        decoder = start;
        EXPECT_EQ(decode_freq(decoder, *model), 288U);
        EXPECT_EQ(decoder.code, start.code);
        EXPECT_EQ(decoder.range, start.range);
        EXPECT_EQ(decoder.in, start.in);
    }
}

TEST(m4_decode_freq, a_position_at_the_interval_end_or_past_it_changes_nothing)
{
    // 32 slots with counts of 1: the shares fill the interval, so only its end is past them.
    const auto model = std::make_unique<m4_model<m4_lookup, value_slots>>();
    m4_model_init(*model, 32);
    ASSERT_EQ(model->cum[32], whole_interval);
    const bytes next(8, 0x55);
    for (const u32 range : {full_range, 0x12345678U, 0x1007FFFU, min_range + 0x7FFF}) {
        const u32 unit = range >> m4_total_bits;
        const u32 end = unit << m4_total_bits;
        range_decoder decoder{next.data(), end - 1, range};
        EXPECT_EQ(decode_freq(decoder, *model), 31U);
        for (u32 code = end; code < range; code += std::min(unit, range - code)) {
            decoder = {next.data(), code, range};
            ASSERT_EQ(decode_freq(decoder, *model), 32U) << code << ' ' << range;
            ASSERT_EQ(decoder.code, code);
            ASSERT_EQ(decoder.range, range);
            ASSERT_EQ(decoder.in, next.data());
        }
    }
}

// Direct values

TEST(m4_direct, a_value_of_25_bits_starts_with_its_lowest_24)
{
    const u32 value = 0x1ABCDEF;
    const bytes stream = coded([](auto& encoder) { m4_encode_direct(encoder, value, 25); });
    EXPECT_EQ(stream, coded([](auto& encoder) {
                  encode_direct(encoder, 0xABCDEF, 24);
                  encode_direct(encoder, 1, 1);
              }));
    // FFFFFFFF >> 24 = FF; low = ABCDEF * FF = AB222111, and three bytes leave; the range
    // FF000000 >> 1 = 7F800000 is added to 11000000.
    EXPECT_EQ(stream, (bytes{0x00, 0xAB, 0x22, 0x21, 0x90, 0x80, 0x00, 0x00}));
    const bytes readable = with_zeros(stream);
    range_decoder decoder = start_range_decoder(readable.data());
    bool damaged = false;
    EXPECT_EQ(m4_decode_direct(decoder, 25, damaged), value);
    EXPECT_FALSE(damaged);
    EXPECT_EQ(decoder.in, readable.data() + stream.size());
}

TEST(m4_direct, values_of_1_to_30_bits_match_the_plain_form_and_come_back)
{
    for (u32 count = 1; count <= 30; ++count) {
        random_source random(count);
        std::vector<u32> values{0, (1U << count) - 1, 1, 1U << (count - 1)};
        for (int i = 0; i < 1000; ++i) values.push_back(random.below(1U << count));
        m4_plain_coder plain;
        const bytes stream = coded([&](auto& encoder) {
            for (const u32 value : values) {
                plain.direct(value, count);
                m4_encode_direct(encoder, value, count);
            }
        });
        plain.flush();
        EXPECT_EQ(stream, plain.out) << count;
        const bytes readable = with_zeros(stream);
        range_decoder decoder = start_range_decoder(readable.data());
        bool damaged = false;
        for (const u32 value : values)
            ASSERT_EQ(m4_decode_direct(decoder, count, damaged), value) << count;
        EXPECT_FALSE(damaged);
    }
}

TEST(m4_direct, a_value_beyond_its_bits_is_damage)
{
    const bytes next(8);
    for (u32 count = 1; count <= 24; ++count) {
        // The last of 2^count parts, and the rest after it.
        const u32 range = 0x1FFFFFF;
        const u32 parts_end = (range >> count) << count;
        bool damaged = false;
        range_decoder decoder{next.data(), parts_end - 1, range};
        EXPECT_EQ(m4_decode_direct(decoder, count, damaged), (1U << count) - 1);
        EXPECT_FALSE(damaged) << count;
        decoder = {next.data(), range - 1, range};
        EXPECT_GE(m4_decode_direct(decoder, count, damaged), 1U << count);
        EXPECT_TRUE(damaged) << count;
    }
    // In the first of two steps; in the second one the parts leave no rest.
    bool damaged = false;
    range_decoder decoder{next.data(), 0xFFFFFF, 0x1FFFFFE};
    m4_decode_direct(decoder, 25, damaged);
    EXPECT_FALSE(damaged);
    decoder = {next.data(), 0x1000000, 0x1FFFFFE};
    m4_decode_direct(decoder, 25, damaged);
    EXPECT_TRUE(damaged);
}

TEST(m4_direct, damage_once_reported_stays)
{
    const bytes next(8);
    range_decoder decoder{next.data(), 0};
    bool damaged = true;
    EXPECT_EQ(m4_decode_direct(decoder, 5, damaged), 0U);
    EXPECT_TRUE(damaged);
}

// Mixtures

TEST(m4_coder, writes_what_the_plain_coder_writes_and_reads_it_back)
{
    struct item {
        u32 value;
        u32 count; // of bits, or 0 for a symbol
    };
    for (u64 seed = 1; seed <= 40; ++seed) {
        random_source random(seed);
        std::vector<item> items;
        for (int i = 0; i < 5000; ++i) {
            const u32 count = random.below(8) == 0 ? 1 + random.below(30) : 0;
            // Some streams are nearly always the same symbol, which takes almost no bits.
            const u32 width = 1 + random.below(seed % 4 == 0 && i % 50 != 0 ? 1U : 63U);
            items.push_back({random.below(count != 0 ? 1U << count : width), count});
        }
        const auto encoding = std::make_unique<m4_model<m4_no_lookup, value_slots>>();
        const auto decoding = std::make_unique<m4_model<m4_lookup, value_slots>>();
        m4_model_init(*encoding, 63);
        m4_model_init(*decoding, 63);
        m4_plain_model plain_model(63, m4_slot_step);
        m4_plain_coder plain;
        const bytes stream = coded([&](auto& encoder) {
            for (const item& next : items) {
                if (next.count != 0) {
                    m4_encode_direct(encoder, next.value, next.count);
                    plain.direct(next.value, next.count);
                    continue;
                }
                m4_encode_freq(encoder, encoding->cum[next.value], encoding->cum[next.value + 1]);
                m4_model_step<m4_slot_step>(*encoding, next.value);
                plain.freq(plain_model.cum[next.value], plain_model.cum[next.value + 1]);
                plain_model.step(next.value);
            }
        });
        plain.flush();
        ASSERT_EQ(stream, plain.out) << seed;

        const bytes readable = with_zeros(stream);
        range_decoder decoder = start_range_decoder(readable.data());
        bool damaged = false;
        for (const item& next : items) {
            if (next.count != 0) {
                ASSERT_EQ(m4_decode_direct(decoder, next.count, damaged), next.value) << seed;
                continue;
            }
            ASSERT_EQ(decode_freq(decoder, *decoding), next.value) << seed;
            m4_model_step<m4_slot_step>(*decoding, next.value);
        }
        EXPECT_FALSE(damaged);
        EXPECT_EQ(decoder.in, readable.data() + stream.size())
            << "the last byte is consumed, no more";
    }
}

} // namespace
} // namespace quarnex
