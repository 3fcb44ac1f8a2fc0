#include "method3/m3_model.h"

#include "method3/m3_streams.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>

namespace quarnex {
namespace {

using test::m3_plain_model;
using test::m3_plain_pairs;
using test::random_source;

template <u32 Capacity>
using encoding_model = m3_model<m3_encoder_tables, Capacity>;
template <u32 Capacity>
using decoding_model = m3_model<m3_decoder_tables, Capacity>;

// Code lengths

/// Returns the number of codes of each length from 0.
std::vector<u32> lengths_of(const std::vector<u32>& weights)
{
    std::vector<u16> overwritten(weights.begin(), weights.end());
    const m3_code_shape shape = m3_code_lengths(overwritten);
    return {shape.codes.begin(), shape.codes.begin() + shape.longest + 1};
}

std::vector<u32> plain_lengths_of(const std::vector<u32>& weights)
{
    m3_plain_pairs pairs;
    for (const u32 weight : weights) pairs.push_back({weight, 0});
    test::m3_plain_code_lengths(pairs);
    std::vector<u32> lengths(pairs[0].freq + 1);
    for (const auto& pair : pairs) ++lengths[pair.freq];
    return lengths;
}

TEST(m3_code_lengths, by_hand)
{
    EXPECT_EQ(lengths_of({1, 1, 1}), (std::vector<u32>{0, 1, 2}));
    EXPECT_EQ(lengths_of({1, 1, 1, 1}), (std::vector<u32>{0, 0, 4}));
    EXPECT_EQ(lengths_of({1, 1, 2, 4, 8}), (std::vector<u32>{0, 1, 1, 1, 2}));
}

TEST(m3_code_lengths, a_leaf_wins_a_tie_against_a_node)
{
    // 1 + 1 = 2, then the two leaves 2 + 2, not the node: all have 2 bits.  The node would give
    // 1, 2, 3, 3.
    EXPECT_EQ(lengths_of({1, 1, 2, 2}), (std::vector<u32>{0, 0, 4}));
    // As the second item too: 1 + 1 = 2, then 1 + 2 of two leaves; the node and the last leaf.
    EXPECT_EQ(lengths_of({1, 1, 1, 2, 3}), plain_lengths_of({1, 1, 1, 2, 3}));
    EXPECT_EQ(lengths_of({1, 1, 1, 2, 3}), (std::vector<u32>{0, 0, 3, 2}));
}

TEST(m3_code_lengths, match_the_plain_form_sorted_or_not_with_any_ties)
{
    random_source random(1);
    for (u32 size = 3; size <= 288; ++size) {
        for (int round = 0; round < 24; ++round) {
            const u32 width = 1 + random.below(32767 / size);
            std::vector<u32> weights;
            for (u32 i = 0; i < size; ++i)
                weights.push_back(1 + random.below(1 + random.below(width)));
            if (round % 3 != 0) std::sort(weights.begin(), weights.end());
            if (round % 3 == 2) std::swap(weights[random.below(size)], weights[random.below(size)]);
            ASSERT_EQ(lengths_of(weights), plain_lengths_of(weights)) << size;
        }
    }
}

TEST(m3_code_lengths, fibonacci_weights_make_the_longest_codes_of_a_sorted_alphabet)
{
    std::vector<u32> weights{1, 1};
    while (weights.size() < 21) weights.push_back(weights.back() + *(weights.end() - 2));
    EXPECT_EQ(std::accumulate(weights.begin(), weights.end(), 0U), 28656U);
    std::vector<u32> expected(21, 1);
    expected[0] = 0;
    expected[20] = 2;
    EXPECT_EQ(lengths_of(weights), expected);
}

TEST(m3_code_lengths, above_30_only_the_longest_is_reported)
{
    // A chain: each weight is above the sum of those before it, or the next one is.
    std::vector<u32> weights{1, 1};
    for (const u32 ones : test::groups_of_31_bits) {
        const u32 sum = std::accumulate(weights.begin(), weights.end(), 0U);
        weights.insert(weights.end(), ones, 1);
        weights.push_back(sum + ones + 1);
    }
    weights.insert(weights.begin(), test::long_code_symbols - 1 - weights.size(), 1);
    weights.push_back(8000);
    const std::vector<u32> expected = plain_lengths_of(weights);
    std::vector<u16> overwritten(weights.begin(), weights.end());
    const m3_code_shape shape = m3_code_lengths(overwritten);
    EXPECT_EQ(shape.longest, expected.size() - 1);
    EXPECT_GT(shape.longest, m3_max_code_bits);
    for (u32 length = 1; length <= m3_max_code_bits; ++length)
        EXPECT_EQ(shape.codes[length], expected[length]) << length;
}

// Comparison with the plain model

template <class Model>
bool same_counts(const Model& model, const m3_plain_model& plain)
{
    return model.counts.symbols == plain.counts.size() && model.counts.total == plain.total &&
           model.counts.period == plain.period && model.counts.countdown == plain.countdown &&
           std::equal(plain.counts.begin(), plain.counts.end(), model.counts.counts) &&
           std::equal(plain.pairs.begin(), plain.pairs.end(), model.pairs,
                      [](const auto& a, const auto& b) { return a.sym == b.sym; });
}

template <u32 Capacity>
bool same_codes(const encoding_model<Capacity>& model, const m3_plain_model& plain)
{
    for (u32 sym = 0; sym < plain.counts.size(); ++sym) {
        const m3_code code = model.tables.codes[sym];
        if (code.code != plain.code[sym] || code.length != plain.code_len[sym]) return false;
    }
    return true;
}

/// Compares each entry of the decoder's tables.
template <u32 Capacity>
bool same_codes(const decoding_model<Capacity>& model, const m3_plain_model& plain)
{
    using tables = m3_decoder_tables<Capacity>;
    for (u32 bits = 0; bits < 1U << tables::lookup_bits; ++bits) {
        const u32 length = plain.length_of(bits);
        const u32 entry = model.tables.lookup[bits];
        if (length > tables::lookup_bits) {
            if (entry != tables::no_entry) return false;
            continue;
        }
        const u32 code = bits >> (tables::lookup_bits - length);
        const u32 place = plain.first_index[length] + code - plain.first_code[length];
        if (entry != (plain.pairs[place].sym << tables::length_bits | length)) return false;
    }
    for (u32 length = plain.longest_code(); length > tables::lookup_bits; --length) {
        if (model.tables.first_code[length] != plain.first_code[length]) return false;
    }
    for (u32 i = 0; plain.pairs[i].freq > tables::lookup_bits; ++i) {
        const u32 length = plain.pairs[i].freq;
        if (model.tables.symbols[i] != plain.pairs[i].sym) return false;
        if (model.tables.first_index[length] != plain.first_index[length]) return false;
    }
    return true;
}

/// The models of both sides and the plain one, which must agree.
template <u32 Capacity>
class models_in_step {
  public:
    explicit models_in_step(u32 symbols) : plain_(symbols)
    {
        m3_model_init(*encoding_, symbols);
        m3_model_init(*decoding_, symbols);
        check();
    }

    void step(u32 sym)
    {
        m3_model_step(*encoding_, sym);
        m3_model_step(*decoding_, sym);
        plain_.step(sym);
        check();
    }

    const encoding_model<Capacity>& encoding() const { return *encoding_; }
    const m3_plain_model& plain() const { return plain_; }
    bool same() const { return same_; }

    /// Adds to the count of a symbol, as if it had been coded.
    void add(u32 sym, u32 count)
    {
        plain_.counts[sym] += count;
        plain_.total += count;
        for (auto* counts : {&encoding_->counts, &decoding_->counts}) {
            counts->counts[sym] = static_cast<u16>(counts->counts[sym] + count);
            counts->total += count;
        }
    }

  private:
    void check()
    {
        const bool counts = same_counts(*encoding_, plain_) && same_counts(*decoding_, plain_);
        const bool short_enough = plain_.longest_code() <= m3_max_code_bits;
        const bool flags =
            encoding_->too_long == !short_enough && decoding_->too_long == !short_enough;
        // The decoder's tables change only at the end of a period; in between, spot checks.
        const auto left = static_cast<u32>(plain_.countdown);
        const bool codes =
            !short_enough ||
            (same_codes(*encoding_, plain_) &&
             ((left != plain_.period && left % 64 != 0) || same_codes(*decoding_, plain_)));
        same_ = same_ && counts && flags && codes;
    }

    std::unique_ptr<encoding_model<Capacity>> encoding_ =
        std::make_unique<encoding_model<Capacity>>();
    std::unique_ptr<decoding_model<Capacity>> decoding_ =
        std::make_unique<decoding_model<Capacity>>();
    m3_plain_model plain_;
    bool same_ = true;
};

// The start

TEST(m3_model, starts_with_64_symbols_of_9_bits_and_224_of_8)
{
    const models_in_step<main_symbols> models(288);
    const auto& model = models.encoding();
    const auto expect_code = [&](u32 sym, u32 code, u32 length) {
        EXPECT_EQ(model.tables.codes[sym].code, code) << sym;
        EXPECT_EQ(model.tables.codes[sym].length, length) << sym;
    };
    expect_code(287, 0, 9);
    expect_code(224, 63, 9);
    expect_code(223, 32, 8);
    expect_code(0, 255, 8);
    for (u32 sym = 224; sym <= 287; ++sym) expect_code(sym, 287 - sym, 9);
    for (u32 sym = 0; sym <= 223; ++sym) expect_code(sym, 255 - sym, 8);
    EXPECT_EQ(model.pairs[0].sym, 287U);
    EXPECT_EQ(model.counts.total, 288U);
    EXPECT_EQ(model.counts.period, 16U);
    EXPECT_EQ(model.counts.countdown, 16);
    EXPECT_TRUE(models.same());
}

TEST(m3_model, the_smallest_alphabet_starts_with_2_slots_of_5_bits_and_15_of_4)
{
    const models_in_step<value_slots> models(17);
    const auto& codes = models.encoding().tables.codes;
    for (u32 sym = 0; sym < 17; ++sym) {
        EXPECT_EQ(codes[sym].code, sym > 14 ? 16 - sym : 15 - sym) << sym;
        EXPECT_EQ(codes[sym].length, sym > 14 ? 5U : 4U) << sym;
    }
    EXPECT_TRUE(models.same());
}

TEST(m3_model, every_alphabet_of_slots_starts_as_the_plain_one)
{
    for (u32 symbols = 17; symbols < 64; ++symbols)
        EXPECT_TRUE(models_in_step<value_slots>(symbols).same()) << symbols;
}

// Periods

TEST(m3_model, periods_double_from_16_to_4096_symbols)
{
    const auto model = std::make_unique<encoding_model<value_slots>>();
    m3_model_init(*model, 17);
    std::vector<u32> passed; // symbols in each period
    for (u32 symbols = 1; passed.size() < 11; ++symbols) {
        m3_model_step(*model, symbols % 17);
        if (model->counts.countdown != static_cast<i32>(model->counts.period)) continue;
        passed.push_back(symbols);
        symbols = 0;
    }
    EXPECT_EQ(passed, (std::vector<u32>{16, 32, 64, 128, 256, 512, 1024, 2048, 4096, 4096, 4096}));
}

TEST(m3_model, a_period_ends_after_its_last_symbol)
{
    const auto model = std::make_unique<encoding_model<main_symbols>>();
    m3_model_init(*model, 288);
    for (int i = 0; i < 15; ++i) m3_model_step(*model, 287);
    EXPECT_EQ(model->tables.codes[287].length, 9U);
    m3_model_step(*model, 287);
    EXPECT_EQ(model->tables.codes[287].length, 4U); // 17 of 304 counts
}

TEST(m3_model, counts_are_halved_above_a_total_of_28671_and_1_stays_1)
{
    models_in_step<main_symbols> models(288);
    models.add(5, 28671 - 16 - 288);
    for (int i = 0; i < 16; ++i) models.step(6);
    EXPECT_EQ(models.encoding().counts.total, 28671U);
    EXPECT_EQ(models.encoding().counts.counts[5], 28368U);
    EXPECT_EQ(models.encoding().counts.counts[6], 17U);

    models_in_step<main_symbols> others(288);
    others.add(5, 28672 - 16 - 288);
    for (int i = 0; i < 16; ++i) others.step(6);
    EXPECT_EQ(others.encoding().counts.counts[5], 14185U); // 28369
    EXPECT_EQ(others.encoding().counts.counts[6], 9U);     // 17
    EXPECT_EQ(others.encoding().counts.counts[0], 1U);
    EXPECT_EQ(others.encoding().counts.total, 14185U + 9 + 286);
    EXPECT_TRUE(models.same());
    EXPECT_TRUE(others.same());
}

TEST(m3_model, at_4096_a_bubble_pass_moves_symbols_any_distance_up_and_one_place_down)
{
    models_in_step<main_symbols> models(288);
    // Symbol 7 is the most frequent at the last full sort.
    for (u32 i = 0; i < 4080; ++i) models.step(i % 4 == 0 ? 7 : i % 287);
    const auto& pairs = models.encoding().pairs;
    ASSERT_EQ(models.encoding().counts.period, 4096U);
    ASSERT_EQ(pairs[287].sym, 7U);
    // Two symbols with long codes become far more frequent.
    const u32 front = pairs[0].sym;
    const u32 middle = pairs[100].sym;
    // The second one is more frequent, so the pass carries it on in place of the first.
    for (u32 i = 0; i < 4096; ++i) models.step(i % 5 < 2 ? front : middle);
    EXPECT_EQ(pairs[287].sym, middle);
    EXPECT_EQ(pairs[286].sym, 7U);
    EXPECT_EQ(pairs[99].sym, front); // where `middle` was carried on instead
    // By now three are more frequent than 7, which again moves down by one place.
    const u32 third = pairs[3].sym;
    for (u32 i = 0; i < 4096; ++i) models.step(third);
    EXPECT_EQ(pairs[287].sym, third);
    EXPECT_EQ(pairs[286].sym, middle);
    EXPECT_EQ(pairs[285].sym, 7U);
    EXPECT_LT(models.encoding().counts.counts[7], models.encoding().counts.counts[front]);
    EXPECT_TRUE(models.same());
}

TEST(m3_model, equal_counts_at_a_second_full_sort_are_reversed_back)
{
    // The counts of 17 symbols are never all equal after 16, 48 or 112 symbols, as 17 divides none
    // of the sums: one count is added.
    models_in_step<value_slots> models(17);
    EXPECT_EQ(models.encoding().pairs[0].sym, 16U);
    for (u32 sym = 0; sym < 16; ++sym) {
        if (sym == 15) models.add(16, 1);
        models.step(sym);
    }
    for (u32 i = 0; i < 17; ++i) EXPECT_EQ(models.encoding().pairs[i].sym, i);
    EXPECT_TRUE(models.same());
}

// Long courses

/// Returns the next symbol below `symbols` of one of several, some changing, distributions.
u32 any_symbol(random_source& random, u32 kind, u32 at, u32 symbols)
{
    switch (kind) {
    case 0:
        return random.below(symbols);
    case 1: // mostly small ones
        return random.below(1 + random.below(1 + random.below(symbols)));
    case 2: // a few, others every 5000
        return (random.below(1 + random.below(8)) + at / 5000 * 37) % symbols;
    case 3: // geometric
        return static_cast<u32>(std::countr_zero(random.next() | 1U << 31)) % symbols;
    case 4: // runs of one symbol, rarely another
        return random.below(100) == 0 ? random.below(symbols) : at / 9000 % symbols;
    default: // in order
        return at % symbols;
    }
}

TEST(m3_model, matches_the_plain_model_after_each_of_many_symbols)
{
    for (u32 kind = 0; kind < 6; ++kind) {
        random_source random(kind + 1);
        models_in_step<main_symbols> models(288);
        for (u32 i = 0; i < 40000; ++i) {
            models.step(any_symbol(random, kind, i, 288));
            ASSERT_TRUE(models.same()) << kind << " at " << i;
        }
    }
}

TEST(m3_model, of_slots_matches_the_plain_model_after_each_of_many_symbols)
{
    for (const u32 symbols : {17U, 18U, 30U, 31U, 40U, 51U, 62U, 63U}) {
        for (u32 kind = 0; kind < 6; ++kind) {
            random_source random(kind + 1);
            models_in_step<value_slots> models(symbols);
            for (u32 i = 0; i < 40000; ++i) {
                models.step(any_symbol(random, kind, i, symbols));
                ASSERT_TRUE(models.same()) << symbols << ' ' << kind << " at " << i;
            }
        }
    }
}

// The longest codes

TEST(m3_model, a_code_of_30_bits_is_usable)
{
    models_in_step<value_slots> models(test::long_code_symbols);
    for (const u32 sym : test::symbols_of_long_codes(test::groups_of_30_bits)) models.step(sym);
    EXPECT_EQ(models.plain().longest_code(), 30U);
    EXPECT_FALSE(models.encoding().too_long);
    EXPECT_EQ(models.encoding().tables.codes[models.plain().pairs[0].sym].length, 30U);
    EXPECT_TRUE(models.same());
}

TEST(m3_model, a_code_of_31_bits_is_too_long_and_stays_so)
{
    models_in_step<value_slots> models(test::long_code_symbols);
    const std::vector<u32> symbols = test::symbols_of_long_codes(test::groups_of_31_bits);
    for (usize i = 0; i + 1 < symbols.size(); ++i) models.step(symbols[i]);
    EXPECT_FALSE(models.encoding().too_long);
    models.step(symbols.back());
    EXPECT_EQ(models.plain().longest_code(), 31U);
    EXPECT_TRUE(models.encoding().too_long);
    EXPECT_TRUE(models.same());
}

TEST(m3_models, are_ok_until_a_code_is_too_long)
{
    const auto models = std::make_unique<m3_models<m3_encoder_tables>>(test::long_code_block);
    EXPECT_EQ(models->main.counts.symbols, 288U);
    EXPECT_EQ(models->distance.counts.symbols, test::long_code_symbols);
    EXPECT_EQ(models->length.counts.symbols, test::long_code_symbols);
    EXPECT_TRUE(models->ok());
    for (auto* model : {&models->distance, &models->length}) {
        m3_model_init(*model, test::long_code_symbols);
        for (const u32 sym : test::symbols_of_long_codes(test::groups_of_31_bits))
            m3_model_step(*model, sym);
        EXPECT_FALSE(models->ok());
        m3_model_init(*model, test::long_code_symbols);
        EXPECT_TRUE(models->ok());
    }
    models->main.too_long = true;
    EXPECT_FALSE(models->ok());
}

} // namespace
} // namespace quarnex
