#include "plain/m3_plain.h"

#include "plain/plain_slots.h"

#include <algorithm>

namespace quarnex::test {
namespace {

using pair_span = std::span<m3_plain_pair>;

bool falls_nowhere(pair_span a)
{
    for (usize i = 0; i + 1 < a.size(); ++i)
        if (a[i].freq > a[i + 1].freq) return false;
    return true;
}

bool rises_nowhere(pair_span a)
{
    for (usize i = 0; i + 1 < a.size(); ++i)
        if (a[i + 1].freq > a[i].freq) return false;
    return true;
}

/// Brings a median of the first, the second and the last entry to the front.
void place_median(pair_span a)
{
    m3_plain_pair& front = a[0];
    m3_plain_pair& second = a[1];
    m3_plain_pair& back = a[a.size() - 1];
    const m3_plain_pair x = front;
    const m3_plain_pair y = second;
    const m3_plain_pair z = back;
    if (y.freq > x.freq) {
        if (x.freq < z.freq) {
            second = x;
            if (y.freq > z.freq) {
                front = z;
                back = y;
            } else {
                front = y;
            }
        } else {
            second = z;
            back = y;
        }
    } else if (x.freq > z.freq) {
        back = x;
        if (y.freq > z.freq) {
            front = y;
            second = z;
        } else {
            front = z;
        }
    }
}

/// Partitions the entries by the first one; returns its final index.
usize partition(pair_span a)
{
    const u32 pivot = a[0].freq;
    usize i = 2;
    usize j = a.size() - 2;
    for (;;) {
        while (a[i].freq < pivot) ++i;
        while (a[j].freq > pivot) --j;
        if (j <= i) break;
        std::swap(a[i++], a[j--]);
    }
    std::swap(a[0], a[j]);
    return j;
}

void insertion_sort(pair_span a)
{
    if (a.size() < 2) return;
    usize smallest = 1;
    for (usize i = 2; i < a.size(); ++i)
        if (a[i].freq < a[smallest].freq) smallest = i;
    if (a[smallest].freq < a[0].freq) std::swap(a[0], a[smallest]);
    for (usize i = 2; i < a.size(); ++i)
        for (usize j = i; j > 0 && a[j - 1].freq > a[j].freq; --j) std::swap(a[j - 1], a[j]);
}

/// Moves an entry down a heap that ends at `last`; the children of entry j are 2j and 2j + 1.
void sift(pair_span a, usize at, usize last)
{
    const m3_plain_pair held = a[at];
    usize j = at;
    while (2 * j < last) {
        const usize child = a[2 * j + 1].freq > a[2 * j].freq ? 2 * j + 1 : 2 * j;
        if (held.freq >= a[child].freq) break;
        a[j] = a[child];
        j = child;
    }
    if (2 * j == last && held.freq < a[last].freq) {
        a[j] = a[last];
        j = last;
    }
    a[j] = held;
}

/// A single pass: an entry goes up any number of places, but down by one only.
void bubble(pair_span a)
{
    for (usize i = 0; i + 1 < a.size(); ++i)
        if (a[i].freq > a[i + 1].freq) std::swap(a[i], a[i + 1]);
}

struct m3_plain_models {
    m3_plain_model main_model{plain_main_symbols};
    m3_plain_model dist_model;
    m3_plain_model len_model;

    explicit m3_plain_models(usize block_len)
        : dist_model(plain_slot_count(block_len)), len_model(plain_slot_count(block_len))
    {
    }

    m3_plain_model& main(u8 /*previous*/) { return main_model; }
};

struct m3_plain_writer {
    m3_plain_models models;
    bytes out{};
    u32 free_bits = 0; // at the bottom of the last byte
    bool fits = true;  // no code has been too long so far

    static constexpr u32 len_bit_price = 1;
    static constexpr u32 dist_bit_price = 1;
    u32 symbol_price(const m3_plain_model& model, u32 sym) const { return model.code_len[sym]; }

    /// Codes may have more than 32 bits.
    void direct(u64 value, u32 count)
    {
        for (u32 i = count; i-- > 0;) {
            if (free_bits == 0) {
                out.push_back(0);
                free_bits = 8;
            }
            --free_bits;
            out.back() = static_cast<u8>(out.back() | (value >> i & 1) << free_bits);
        }
    }

    void symbol(m3_plain_model& model, u32 sym)
    {
        direct(model.code[sym], model.code_len[sym]);
        model.step(sym);
        fits = fits && model.longest_code() <= m3_plain_longest_code;
    }
};

m3_plain_writer writer_of(const bytes& block)
{
    m3_plain_writer writer{m3_plain_models(block.size())};
    writer.out = {block.at(0)};
    return writer;
}

struct m3_plain_reader {
    m3_plain_models models;
    const bytes& in;
    usize at = 8; // in bits; the first byte is raw

    u32 bit()
    {
        const u32 byte = in.at(at / 8);
        return byte >> (7 - at++ % 8) & 1;
    }

    u32 direct(u32 count)
    {
        u32 value = 0;
        for (u32 i = 0; i < count; ++i) value = value * 2 + bit();
        return value;
    }

    u32 symbol(m3_plain_model& model)
    {
        u32 len = 0;
        u32 code = 0;
        do {
            ++len;
            code = code * 2 + bit();
        } while (code < model.first_code.at(len));
        const u32 index = model.first_index[len] + code - model.first_code[len];
        const u32 sym = model.pairs[index].sym;
        model.step(sym);
        return sym;
    }
};

} // namespace

u32 m3_plain_sort_depth(usize size)
{
    if (size < 4) return 4;
    u32 bit_length = 0;
    while (size >> 2 >> bit_length != 0) ++bit_length;
    return 2 * (2 + bit_length);
}

u32 m3_plain_sort(std::span<m3_plain_pair> pairs, u32 depth, u32 seed)
{
    while (pairs.size() > 30) {
        if (falls_nowhere(pairs)) return seed;
        if (depth == 0) {
            m3_plain_heap_sort(pairs);
            return seed;
        }
        --depth;
        seed = seed * 69069 + 362437;
        std::swap(pairs[0], pairs[seed % (pairs.size() - 1)]);
        place_median(pairs);
        const usize middle = partition(pairs);
        seed = m3_plain_sort(pairs.subspan(middle + 1), depth, seed);
        pairs = pairs.first(middle);
    }
    insertion_sort(pairs);
    return seed;
}

void m3_plain_heap_sort(std::span<m3_plain_pair> pairs)
{
    const usize size = pairs.size();
    for (usize i = (size - 1) / 2 + 1; i-- > 0;) sift(pairs, i, size - 1);
    for (usize last = size - 1; last > 0; --last) {
        std::swap(pairs[0], pairs[last]);
        if (last > 1) sift(pairs, 0, last - 1);
    }
}

void m3_plain_code_lengths(std::span<m3_plain_pair> pairs)
{
    const usize n = pairs.size();
    // Joins the two smallest again and again; what is joined keeps the index of its parent.
    std::vector<u32> a;
    for (const m3_plain_pair& pair : pairs) a.push_back(pair.freq);
    a[0] += a[1];
    usize root = 0;
    usize leaf = 2;
    for (usize next = 1; next + 1 < n; ++next) {
        if (leaf >= n || a[root] < a[leaf]) {
            a[next] = a[root];
            a[root++] = static_cast<u32>(next);
        } else {
            a[next] = a[leaf++];
        }
        if (leaf >= n || (root < next && a[root] < a[leaf])) {
            a[next] += a[root];
            a[root++] = static_cast<u32>(next);
        } else {
            a[next] += a[leaf++];
        }
    }
    // The depths of the inner nodes.
    a[n - 2] = 0;
    for (usize next = n - 2; next-- > 0;) a[next] = a[a[next]] + 1;
    // The depths of the leaves, level by level: the items that are not inner nodes.
    u32 available = 1;
    usize inner = n - 1; // how many are left
    usize next = n;
    for (u32 depth = 0; available > 0; ++depth) {
        u32 used = 0;
        for (; inner > 0 && a[inner - 1] == depth; --inner) ++used;
        for (; available > used; --available) pairs[--next].freq = depth;
        available = 2 * used;
    }
}

m3_plain_model::m3_plain_model(u32 symbols) : counts(symbols, 1), total(symbols)
{
    for (u32 sym = 0; sym < symbols; ++sym) pairs.push_back({0, sym});
    rebuild(true);
    period = 16;
    countdown = 16;
}

void m3_plain_model::step(u32 sym)
{
    ++counts[sym];
    --countdown;
    if (countdown >= 1) return;
    total += period;
    if (total > 28671) {
        total = 0;
        for (u32& count : counts) {
            count = (count + 1) / 2;
            total += count;
        }
    }
    if (period <= 4095) {
        rebuild(true);
        period *= 2;
    } else {
        rebuild(false);
    }
    countdown = static_cast<i32>(period);
}

void m3_plain_model::rebuild(bool full_sort)
{
    for (m3_plain_pair& pair : pairs) pair.freq = counts[pair.sym];
    if (!full_sort)
        bubble(pairs);
    else if (rises_nowhere(pairs))
        std::reverse(pairs.begin(), pairs.end());
    else
        m3_plain_sort(pairs, m3_plain_sort_depth(pairs.size()), m3_plain_sort_seed);
    m3_plain_code_lengths(pairs);

    // The encoder's form: the longest codes have the lowest values.
    code_len.assign(counts.size(), 0);
    code.assign(counts.size(), 0);
    for (usize i = 0; i < pairs.size(); ++i) {
        const m3_plain_pair& pair = pairs[i];
        code_len[pair.sym] = pair.freq;
        if (i == 0) continue;
        const m3_plain_pair& before = pairs[i - 1];
        code[pair.sym] = (code[before.sym] + 1) >> (before.freq - pair.freq);
    }

    // The decoder's form.
    first_code.assign(longest_code() + 1, 0);
    first_index.assign(longest_code() + 1, 0);
    u32 next_code = 0;
    u32 index = 0;
    for (u32 len = longest_code() + 1; len-- > 0;) {
        first_code[len] = next_code;
        first_index[len] = index;
        for (; index < pairs.size() && pairs[index].freq == len; ++index) ++next_code;
        next_code /= 2;
    }
}

u32 m3_plain_model::length_of(u32 ten_bits) const
{
    for (u32 len = 1; len <= 10; ++len)
        if (ten_bits >> (10 - len) >= first_code.at(len)) return len;
    return 11;
}

bytes m3_plain_stream(const bytes& block, const std::vector<plain_token>& tokens, u32 min_match)
{
    m3_plain_writer writer = writer_of(block);
    plain_write_tokens(writer, block, tokens, min_match);
    return writer.out;
}

bytes m3_plain_encode(const bytes& block, u32 level, u32 hash_bits, u32 chain_bits)
{
    if (block.empty()) return block;
    m3_plain_writer writer = writer_of(block);
    if (level >= 8) {
        plain_write_parse(writer, block, m3_rules, level);
    } else {
        const auto tokens = plain_search(block, m3_rules, level, hash_bits, chain_bits);
        plain_write_tokens(writer, block, tokens, 4);
    }
    return writer.fits && writer.out.size() < block.size() ? writer.out : block;
}

bytes m3_plain_decode(const bytes& stream, usize out_len, u32 min_match)
{
    m3_plain_reader reader{m3_plain_models(out_len), stream};
    return plain_read_tokens(reader, stream.at(0), out_len, min_match);
}

} // namespace quarnex::test
