#include "plain/m4_plain.h"

#include "plain/plain_bit_cost.h"
#include "plain/plain_slots.h"

namespace quarnex::test {
namespace {

struct m4_plain_models {
    u32 mask;
    std::vector<m4_plain_model> main_models{256, m4_plain_model(plain_main_symbols, 2)};
    m4_plain_model dist_model;
    m4_plain_model len_model;

    m4_plain_models(usize block_len, u32 lit_ctx_bits)
        : mask((1U << lit_ctx_bits) - 1), dist_model(plain_slot_count(block_len), 1),
          len_model(plain_slot_count(block_len), 1)
    {
    }

    m4_plain_model& main(u8 previous) { return main_models[previous & mask]; }
};

struct m4_plain_writer {
    m4_plain_models models;
    m4_plain_coder coder{};

    void symbol(m4_plain_model& model, u32 sym)
    {
        coder.freq(model.cum[sym], model.cum[sym + 1]);
        model.step(sym);
    }

    void direct(u32 value, u32 count) { coder.direct(value, count); }

    static constexpr u32 len_bit_price = 0; // they are not priced
    static constexpr u32 dist_bit_price = plain_bit;
    /// Negative, modulo 2^32, for a symbol that has hardly been seen.
    u32 symbol_price(const m4_plain_model& model, u32 sym) const
    {
        return plain_bit_cost(model.total / 8) - plain_bit_cost(model.counts[sym] / 8);
    }
};

m4_plain_writer writer_of(const bytes& block, u32 lit_ctx_bits)
{
    m4_plain_writer writer{m4_plain_models(block.size(), lit_ctx_bits)};
    writer.coder.out = {block.at(0)};
    return writer;
}

struct m4_plain_reader {
    m4_plain_models models;
    plain_range_reader coder;

    u32 symbol(m4_plain_model& model)
    {
        const u32 r = coder.range >> 15;
        const u32 sym = model.symbol_of(coder.code / r);
        coder.narrow(r * model.cum[sym], r * (model.cum[sym + 1] - model.cum[sym]));
        model.step(sym);
        return sym;
    }

    u32 direct(u32 count)
    {
        if (count <= 24) return coder.direct(count);
        const u32 low_part = coder.direct(24);
        return coder.direct(count - 24) << 24 | low_part;
    }
};

} // namespace

m4_plain_model::m4_plain_model(u32 symbols, u32 weight_of_one)
    : weight(weight_of_one), counts(symbols, 1), total(symbols)
{
    scale();
}

void m4_plain_model::step(u32 sym)
{
    counts[sym] += weight;
    countdown -= static_cast<i32>(weight);
    if (countdown >= 1) return;
    total += period - static_cast<u32>(countdown);
    if (total > 30719) {
        total = 0;
        for (u32& count : counts) {
            count = (count + 1) / 2;
            total += count;
        }
    }
    scale();
    if (period < 2048) period *= 2;
    countdown = static_cast<i32>(period);
}

void m4_plain_model::scale()
{
    const u32 factor = (1U << 31) / total;
    u32 sum = 0;
    cum = {0};
    lookup = {0};
    for (u32 sym = 0; sym < counts.size(); ++sym) {
        sum += counts[sym];
        cum.push_back(sum * factor >> 16);
        while (lookup.size() <= sum * factor >> 22) lookup.push_back(sym);
    }
    lookup.resize(513, static_cast<u32>(counts.size()) - 1);
}

u32 m4_plain_model::symbol_of(u32 t) const
{
    u32 sym = lookup[t / 64];
    while (t >= cum.at(sym + 1)) ++sym;
    return sym;
}

void m4_plain_coder::freq(u32 lo, u32 hi)
{
    const u32 r = range >> 15;
    narrow(lo * r, (hi - lo) * r);
}

void m4_plain_coder::direct(u32 value, u32 count)
{
    if (count > 24) {
        plain_range_coder::direct(value & 0xFFFFFF, 24);
        value >>= 24;
        count -= 24;
    }
    plain_range_coder::direct(value, count);
}

bytes m4_plain_stream(const bytes& block, const std::vector<plain_token>& tokens, u32 min_match,
                      u32 lit_ctx_bits)
{
    m4_plain_writer writer = writer_of(block, lit_ctx_bits);
    plain_write_tokens(writer, block, tokens, min_match);
    writer.coder.flush();
    return writer.coder.out;
}

bytes m4_plain_encode(const bytes& block, u32 level, u32 lit_ctx_bits, u32 hash_bits,
                      u32 chain_bits)
{
    if (block.empty()) return block;
    m4_plain_writer writer = writer_of(block, lit_ctx_bits);
    if (level >= 8) {
        plain_write_parse(writer, block, m4_rules, level);
    } else {
        const auto tokens = plain_search(block, m4_rules, level, hash_bits, chain_bits);
        plain_write_tokens(writer, block, tokens, 4);
    }
    writer.coder.flush();
    return writer.coder.out.size() < block.size() ? writer.coder.out : block;
}

bytes m4_plain_decode(const bytes& stream, usize out_len, u32 min_match, u32 lit_ctx_bits)
{
    m4_plain_reader reader{m4_plain_models(out_len, lit_ctx_bits), plain_range_reader(stream, 1)};
    return plain_read_tokens(reader, stream.at(0), out_len, min_match);
}

} // namespace quarnex::test
