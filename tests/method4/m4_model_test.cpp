#include "method4/m4_model.h"

#include "plain/m4_plain.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <numeric>

namespace quarnex {
namespace {

using test::m4_plain_model;
using test::random_source;

/// The models of both sides and the plain one, which must agree.
template <u32 Capacity, u32 Step>
class models_in_step {
  public:
    explicit models_in_step(u32 symbols) : plain_(symbols, Step)
    {
        m4_model_init(*encoding_, symbols);
        m4_model_init(*decoding_, symbols);
        check_shares();
    }

    void step(u32 sym)
    {
        m4_model_step<Step>(*encoding_, sym);
        m4_model_step<Step>(*decoding_, sym);
        plain_.step(sym);
        check_counts(encoding_->counts);
        check_counts(decoding_->counts);
        if (plain_.countdown == static_cast<i32>(plain_.period)) check_shares();
    }

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

    const m4_model<m4_lookup, Capacity>& model() const { return *decoding_; }
    bool same() const { return same_; }

  private:
    void check_counts(const adaptive_counts<Capacity>& counts)
    {
        same_ = same_ && counts.total == plain_.total && counts.period == plain_.period &&
                counts.countdown == plain_.countdown && counts.symbols == plain_.counts.size() &&
                std::equal(plain_.counts.begin(), plain_.counts.end(), counts.counts);
    }

    void check_shares()
    {
        const auto& cum = plain_.cum;
        same_ = same_ && std::equal(cum.begin(), cum.end(), encoding_->cum) &&
                std::equal(cum.begin(), cum.end(), decoding_->cum) && lookup_is_right();
        // No share is empty, and the entries after the last one stop any search.
        same_ = same_ &&
                std::adjacent_find(cum.begin(), cum.end(), std::greater_equal<>()) == cum.end();
        const u16* const padding = decoding_->cum + cum.size();
        same_ = same_ && std::all_of(padding, padding + word_lanes,
                                     [](u16 share) { return share == whole_interval; });
    }

    /// Returns true if a search up from the table's entry finds the symbol of each position.
    bool lookup_is_right() const
    {
        const u16* const first = decoding_->lookup.first;
        constexpr u32 plain_unit_bits = 6;
        for (u32 entry = 0; entry <= m4_lookup::units; ++entry) {
            if (first[entry] != plain_.lookup[entry << (m4_lookup::unit_bits - plain_unit_bits)])
                return false;
        }
        u32 symbol = 0;
        for (u32 place = 0; place < plain_.cum.back(); ++place) {
            if (place == plain_.cum[symbol + 1]) ++symbol;
            if (first[place >> m4_lookup::unit_bits] > symbol) return false;
        }
        return true;
    }

    using encoding_model = m4_model<m4_no_lookup, Capacity>;
    using decoding_model = m4_model<m4_lookup, Capacity>;
    std::unique_ptr<encoding_model> encoding_ = std::make_unique<encoding_model>();
    std::unique_ptr<decoding_model> decoding_ = std::make_unique<decoding_model>();
    m4_plain_model plain_;
    bool same_ = true;
};
using main_models = models_in_step<main_symbols, m4_main_step>;
using slot_models = models_in_step<value_slots, m4_slot_step>;

// The start

TEST(m4_model, starts_with_288_shares_at_multiples_of_7456540_by_65536)
{
    const main_models models(288);
    const auto& model = models.model();
    EXPECT_EQ((1U << 31) / model.counts.total, 7456540U);
    for (u64 sym = 0; sym <= 288; ++sym) EXPECT_EQ(model.cum[sym], sym * 7456540 >> 16) << sym;
    EXPECT_EQ(model.cum[288], 32767U);
    EXPECT_EQ(model.counts.period, 2U);
    EXPECT_EQ(model.counts.countdown, 2);
    EXPECT_TRUE(models.same());
}

TEST(m4_model, initially_the_last_entry_of_the_table_finds_the_last_symbol)
{
    // Shares are at least 113 units wide, so no entry is more than three symbols too low.
    const main_models models(288);
    const auto& model = models.model();
    for (u32 sym = 0; sym < 288; ++sym) EXPECT_GE(model.cum[sym + 1] - model.cum[sym], 113);
    EXPECT_EQ(model.lookup.first[127], 285U); // 127 * 256 = 32512, and 286 starts at 32540
    EXPECT_EQ(find_share(model.cum, model.lookup.first[127], 32766).symbol, 287U);
    EXPECT_EQ(model.lookup.first[128], 287U);
}

TEST(m4_model, every_alphabet_of_slots_starts_as_the_plain_one)
{
    for (u32 symbols = 17; symbols < 64; ++symbols)
        EXPECT_TRUE(slot_models(symbols).same()) << symbols;
}

// Shares

TEST(m4_model, a_power_of_two_as_total_fills_the_interval_and_the_last_symbol_the_table)
{
    // 32 slots with counts of 1: shares of 1024 units, 4 entries of the table for each.
    const slot_models models(32);
    const auto& model = models.model();
    for (u32 sym = 0; sym <= 32; ++sym) EXPECT_EQ(model.cum[sym], 1024 * sym);
    EXPECT_EQ(model.cum[32], 32768U);
    EXPECT_EQ(model.lookup.first[0], 0U);
    for (u32 entry = 1; entry <= 128; ++entry)
        EXPECT_EQ(model.lookup.first[entry], (entry - 1) / 4) << entry;
    EXPECT_EQ(model.lookup.first[128], 31U);
    EXPECT_TRUE(models.same());
}

TEST(m4_model, the_maximum_total_leaves_each_symbol_a_share)
{
    // 32767: the scale is 65538, just above 1 for a count.
    auto model = std::make_unique<m4_model<m4_lookup, main_symbols>>();
    m4_model_init(*model, main_symbols);
    model->counts.counts[100] = 32767 - 287;
    model->counts.total = 32767;
    m4_model_scale(*model);
    for (u32 sym = 0; sym < 288; ++sym) EXPECT_GT(model->cum[sym + 1], model->cum[sym]) << sym;
    EXPECT_EQ(model->cum[100], 100U);
    EXPECT_EQ(model->cum[288], 32767U * 65538 >> 16);
}

// Periods

TEST(m4_model, periods_of_main_models_double_from_1_to_1024_symbols)
{
    auto model = std::make_unique<m4_model<m4_no_lookup, main_symbols>>();
    m4_model_init(*model, main_symbols);
    std::vector<u32> passed; // symbols in each period
    for (u32 symbols = 1; passed.size() < 13; ++symbols) {
        m4_model_step<m4_main_step>(*model, symbols % 288);
        if (model->counts.countdown != static_cast<i32>(model->counts.period)) continue;
        passed.push_back(symbols);
        symbols = 0;
    }
    EXPECT_EQ(passed, (std::vector<u32>{1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024, 1024, 1024}));
}

TEST(m4_model, periods_of_slot_models_double_from_2_to_2048_symbols)
{
    auto model = std::make_unique<m4_model<m4_no_lookup, value_slots>>();
    m4_model_init(*model, 17);
    std::vector<u32> passed;
    for (u32 symbols = 1; passed.size() < 13; ++symbols) {
        m4_model_step<m4_slot_step>(*model, symbols % 17);
        if (model->counts.countdown != static_cast<i32>(model->counts.period)) continue;
        passed.push_back(symbols);
        symbols = 0;
    }
    EXPECT_EQ(passed,
              (std::vector<u32>{2, 4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048, 2048, 2048}));
}

TEST(m4_model, shares_change_only_at_the_end_of_a_period)
{
    auto model = std::make_unique<m4_model<m4_no_lookup, value_slots>>();
    m4_model_init(*model, 17);
    const u16 before = model->cum[1];
    m4_model_step<m4_slot_step>(*model, 0);
    EXPECT_EQ(model->counts.counts[0], 2U);
    EXPECT_EQ(model->cum[1], before);
    EXPECT_EQ(model->counts.total, 17U);
    m4_model_step<m4_slot_step>(*model, 0);
    EXPECT_EQ(model->counts.total, 19U);
    EXPECT_EQ(model->cum[1], 3 * ((1U << 31) / 19) >> 16);
}

TEST(m4_model, counts_are_halved_above_a_total_of_30719)
{
    main_models models(288);
    models.add(5, 30719 - 2 - 288);
    models.step(6);
    EXPECT_EQ(models.model().counts.total, 30719U);
    EXPECT_EQ(models.model().counts.counts[5], 30430U);
    EXPECT_EQ(models.model().counts.counts[6], 3U);

    main_models others(288);
    others.add(5, 30720 - 2 - 288);
    others.step(6);
    EXPECT_EQ(others.model().counts.counts[5], 15216U); // 30431
    EXPECT_EQ(others.model().counts.counts[6], 2U);     // 3
    EXPECT_EQ(others.model().counts.counts[0], 1U);
    EXPECT_EQ(others.model().counts.total, 15216U + 2 + 286);
    EXPECT_TRUE(models.same());
    EXPECT_TRUE(others.same());
}

// Long courses

/// Returns the next symbol of one of several, some changing, distributions.
u32 any_symbol(random_source& random, u32 kind, u32 at, u32 symbols)
{
    switch (kind) {
    case 0:
        return random.below(symbols);
    case 1: // mostly small ones
        return random.below(1 + random.below(1 + random.below(symbols)));
    case 2: // runs of one symbol, rarely another
        return random.below(100) == 0 ? random.below(symbols) : at / 9000 % symbols;
    default: // mostly large ones, changing every 5000 symbols
        return (symbols - 1 - random.below(1 + random.below(8)) + at / 5000 * 37) % symbols;
    }
}

template <class Models>
void expect_plain_course(u32 symbols)
{
    for (u32 kind = 0; kind < 4; ++kind) {
        random_source random(kind + 1);
        Models models(symbols);
        for (u32 i = 0; i < 40000; ++i) {
            models.step(any_symbol(random, kind, i, symbols));
            ASSERT_TRUE(models.same()) << symbols << ' ' << kind << " at " << i;
        }
    }
}

TEST(m4_model, matches_the_plain_model_after_each_of_many_symbols)
{
    expect_plain_course<main_models>(288);
}

TEST(m4_model, of_slots_matches_the_plain_model_after_each_of_many_symbols)
{
    for (u32 symbols = 17; symbols < 64; symbols += symbols < 20 || symbols > 60 ? 1 : 5)
        expect_plain_course<slot_models>(symbols);
}

// All models of a block

/// Expects a model in its initial state.
template <class Model>
void expect_start(const Model& model, u32 symbols)
{
    EXPECT_EQ(model.counts.symbols, symbols);
    EXPECT_EQ(model.counts.total, symbols);
    EXPECT_EQ(model.counts.period, 2U);
    for (u32 sym = 0; sym < symbols; ++sym) ASSERT_EQ(model.counts.counts[sym], 1U);
    EXPECT_EQ(model.cum[symbols], ((1U << 31) / symbols * symbols) >> 16);
}

template <class State>
void expect_all_start(State& state)
{
    for (const u32 len : {1U, 70000U}) {
        state.start(len);
        for (const auto& model : state.main) expect_start(model, 288);
        expect_start(state.distance, slot_count(len));
        expect_start(state.length, slot_count(len));
        // What one block learns is not for the next.
        m4_model_step<m4_main_step>(state.main[77], 5);
        m4_model_step<m4_slot_step>(state.distance, 5);
        m4_model_step<m4_slot_step>(state.length, 5);
    }
}

TEST(m4_state, every_block_starts_with_all_256_contexts_fresh)
{
    scratch memory(system_allocator);
    const codec_job job{.memory = &memory};
    void* const encoding = m4_encoder_init(job);
    ASSERT_NE(encoding, nullptr);
    expect_all_start(*static_cast<m4_enc_state*>(encoding));
    m4_encoder_release(job, encoding);
    void* const decoding = m4_decoder_init(job);
    ASSERT_NE(decoding, nullptr);
    expect_all_start(*static_cast<m4_dec_state*>(decoding));
    m4_decoder_release(job, decoding);
}

TEST(m4_context_mask, keeps_the_lowest_bits_of_a_byte)
{
    EXPECT_EQ(m4_context_mask(0), 0U);
    EXPECT_EQ(m4_context_mask(1), 1U);
    EXPECT_EQ(m4_context_mask(5), 0x1FU);
    EXPECT_EQ(m4_context_mask(8), 0xFFU);
    for (const u32 bits : {9U, 31U, 32U, 255U}) EXPECT_EQ(m4_context_mask(bits), 0xFFU) << bits;
}

} // namespace
} // namespace quarnex
