#include "plain/plain_search.h"

namespace quarnex::test {
namespace {

enum class bucket_kind { single, pair, ring };

/// Earlier positions by hash value: the last one, the last two, or the last few.  The buckets of
/// pairs and rings overlap with those of the next hash values.
struct plain_table {
    bucket_kind kind;
    u32 ring_size;
    std::vector<u32> entries;

    std::vector<u32> candidates(u32 hash) const
    {
        if (kind == bucket_kind::single) return {entries[hash]};
        if (kind == bucket_kind::pair) return {entries[hash], entries[hash + 1]};
        std::vector<u32> found;
        found.reserve(ring_size);
        for (u32 i = 0; i < ring_size; ++i) {
            if (i > 0 && entries[hash + i] == 0) break;
            found.push_back(entries[hash + i] >> 8);
        }
        return found;
    }

    void insert(u32 hash, u32 pos)
    {
        if (kind == bucket_kind::ring) {
            const u32 cursor = ((entries[hash] & 0xFF) + 1) % ring_size;
            entries[hash] = (entries[hash] & 0xFFFFFF00) | cursor;
            u32& entry = entries[hash + cursor];
            entry = pos % (1U << 24) * 256 + (entry & 0xFF);
            return;
        }
        if (kind == bucket_kind::pair) entries[hash + 1] = entries[hash];
        entries[hash] = pos;
    }
};

plain_table single_table(u32 hash_bits)
{
    return {bucket_kind::single, 0, std::vector<u32>(usize{1} << hash_bits, 0)};
}

plain_table pair_table(u32 hash_bits, u32 start)
{
    return {bucket_kind::pair, 0, std::vector<u32>((usize{1} << hash_bits) + 1, start)};
}

plain_table ring_table(u32 hash_bits, u32 chain_bits)
{
    const u32 ring_size = 1U << chain_bits;
    return {bucket_kind::ring, ring_size,
            std::vector<u32>((usize{1} << hash_bits) + ring_size + 1, 0)};
}

/// True if a candidate `longer` bytes longer at `cand_dist` replaces a match at `dist`.
bool better(i64 longer, u32 dist, u32 cand_dist)
{
    if (longer >= 2) return true;
    if (longer >= 0 && cand_dist < dist) return true;
    if (longer == 1 && dist > cand_dist >> 3) return true;
    return longer >= -1 && cand_dist < dist >> 3;
}

struct searcher {
    const bytes& block;
    u32 max_dist;
    u32 hash_bits;
    plain_table table;
    std::vector<plain_token> tokens{};

    /// The byte at a position; zero past the block.
    u8 byte_at(u32 pos) const { return pos < block.size() ? block[pos] : u8{0}; }

    u32 hash(u32 pos) const
    {
        u32 word = 0;
        for (u32 i = 0; i < 4; ++i) word |= u32{byte_at(pos + i)} << (8 * i);
        return (word * 123456791U) >> (32 - hash_bits);
    }

    std::vector<u32> candidates(u32 pos) const { return table.candidates(hash(pos)); }
    void insert(u32 pos) { table.insert(hash(pos), pos); }

    bool same_byte(u32 pos, u32 cand, u32 index) const
    {
        return byte_at(pos + index) == byte_at(cand + index);
    }

    /// True if two positions have the same word, and their distance can be coded.
    bool can_match(u32 pos, u32 cand) const
    {
        if (pos - cand > max_dist) return false;
        for (u32 i = 0; i < 4; ++i)
            if (!same_byte(pos, cand, i)) return false;
        return true;
    }

    /// The match of two positions that can match, which can extend past the block.
    plain_token match(u32 pos, u32 cand) const
    {
        u32 len = 4;
        while (pos + len < block.size() && same_byte(pos, cand, len)) ++len;
        return {len, pos - cand};
    }

    /// True if the `count` bytes before `cand` are in the block and equal those from `pos` on.
    bool same_before(u32 pos, u32 cand, u32 count) const
    {
        if (cand < count) return false;
        for (u32 i = 0; i < count; ++i)
            if (byte_at(cand - count + i) != byte_at(pos + i)) return false;
        return true;
    }

    /// False if a second or later candidate is rejected without measuring its match.
    bool worth_measuring(u32 pos, u32 cand, u32 len) const
    {
        if (table.kind == bucket_kind::pair) return same_byte(pos, cand, len);
        return same_byte(pos, cand, len - 3) && same_byte(pos, cand, len - 2);
    }

    /// The best match of `pos` with some candidates; a literal if there is none.
    plain_token best_of(u32 pos, const std::vector<u32>& cands) const
    {
        plain_token best{1, 0};
        if (table.kind == bucket_kind::pair && pos + 4 >= block.size()) return best;
        for (const u32 cand : cands) {
            if (!can_match(pos, cand)) continue;
            const bool first = best.dist == 0;
            if (!first && !worth_measuring(pos, cand, best.len)) continue;
            const plain_token other = match(pos, cand);
            if (first || better(i64{other.len} - best.len, best.dist, other.dist)) best = other;
        }
        return best;
    }

    /// True if a match `step` bytes later is better, so that `pos` becomes a literal.  Such a match
    /// can also replace `best`, if it extends back to `pos`.
    bool gives_way(u32 pos, u32 step, plain_token& best) const
    {
        const u32 next = pos + step;
        for (const u32 cand : candidates(next)) {
            if (!same_byte(next, cand, step == 1 ? best.len - 1 : best.len)) continue;
            if (!can_match(next, cand)) continue;
            const plain_token other = match(next, cand);
            const i64 longer = i64{other.len} - best.len;
            if (cand != pos && same_before(pos, cand, step) &&
                better(longer + step, best.dist, other.dist)) {
                best = {other.len + step, other.dist};
                continue;
            }
            if (better(longer - step, best.dist, other.dist)) return true;
        }
        return false;
    }

    void greedy(u32 first_pos, bool inserts)
    {
        for (u32 pos = first_pos; pos < block.size(); pos += tokens.back().len) {
            const plain_token best = best_of(pos, candidates(pos));
            tokens.push_back(best);
            insert(pos);
            if (best.dist == 0 || !inserts) continue;
            insert(pos + 1);
            insert(pos + 2);
            insert(pos + best.len - 1);
        }
    }

    void lazy(u32 first_pos, u32 steps)
    {
        for (u32 pos = first_pos; pos < block.size(); pos += tokens.back().len) {
            plain_token best = best_of(pos, candidates(pos));
            insert(pos);
            for (u32 step = 1; step <= steps && best.dist != 0; ++step)
                if (gives_way(pos, step, best)) best = {1, 0};
            tokens.push_back(best);
            if (best.dist == 0) continue;
            insert(pos + 1);
            insert(pos + 2);
            insert(pos + best.len - 1);
            if (table.kind != bucket_kind::ring || best.len > 4) insert(pos + best.len - 2);
        }
    }
};

} // namespace

std::vector<plain_token> plain_search(const bytes& block, const plain_rules& rules, u32 level,
                                      u32 hash_bits, u32 chain_bits)
{
    const u32 first_pos = rules.first_pos;
    const bool greedy = level == 0 || (level == 1 && !rules.level_1_is_lazy);
    searcher search{block, rules.max_dist, hash_bits,
                    level <= 2   ? single_table(hash_bits)
                    : level == 3 ? pair_table(hash_bits, rules.pair_start)
                                 : ring_table(hash_bits, chain_bits)};
    if (greedy)
        search.greedy(first_pos, level == 1 || rules.level_0_inserts);
    else
        search.lazy(first_pos, level <= 2 ? 1 : 2);
    return search.tokens;
}

} // namespace quarnex::test
