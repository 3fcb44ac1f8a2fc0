#include "match/ring_search.h"

#include <algorithm>

namespace quarnex {
namespace {

/// Mask of the lowest `count` bytes of a word, 1 to 8.
constexpr u64 low_bytes(u32 count)
{
    return ~u64{0} >> (8 * (8 - count));
}

/// The longest match so far, and the nearest if several are as long.
class longest_match {
  public:
    longest_match(const block_text& text, u32 pos)
        : text_(text), pos_(pos), cand_(pos), window_(load_u64(text.data + pos)),
          shifted_text_(text.data)
    {
    }

    /// Replaces the match by `cand` if that is longer, or as long and nearer.
    ///
    /// Most candidates are rejected by one load.  A farther one has to share len_ + 1 bytes.  A
    /// nearer one has to share len_ - 1 bytes: one byte shorter, it can be shorter_cand_.  The mask
    /// is selected by a conditional move: a branch would be mispredicted.
    [[gnu::always_inline]] void compare(u32 cand)
    {
        const u64 needed = cand > cand_ ? needed_if_nearer_ : needed_if_farther_;
        if (((load_u64(shifted_text_ + cand) ^ window_) & needed) != 0) return;
        if (!text_.matches(pos_, cand)) return;
        const u32 len = text_.match_length(pos_, cand);
        if (len > len_) {
            shorter_cand_ = len == len_ + 1 ? cand_ : 0;
            cand_ = cand;
            set_length(len);
        } else if (len == len_) {
            cand_ = std::max(cand_, cand);
        } else if (len + 1 == len_) {
            shorter_cand_ = std::max(shorter_cand_, cand);
        }
    }

    /// The match, or a length of 0 without any.
    found_match match() const
    {
        return len_ < min_len ? found_match{0, 0} : found_match{len_, pos_ - cand_};
    }

    /// True if a match one byte shorter is so much nearer that better_match() may prefer it: the
    /// result then depends on the order of the candidates.
    bool depends_on_order() const
    {
        const u32 dist = pos_ - cand_;
        return pos_ - shorter_cand_ - 1 < dist >> 3;
    }

  private:
    static constexpr u32 min_len = 4;

    void set_length(u32 len)
    {
        const u32 offset = len > 7 ? len - 7 : 0;
        len_ = len;
        needed_if_farther_ = low_bytes(len + 1 - offset);
        needed_if_nearer_ = low_bytes(std::max(len - 1, min_len) - offset);
        shifted_text_ = text_.data + offset;
        window_ = load_u64(shifted_text_ + pos_);
    }

    const block_text& text_;
    u32 pos_;
    u32 len_ = min_len - 1;
    u32 cand_;             // the position of the match, pos_ without any
    u32 shorter_cand_ = 0; // the nearest match of len_ - 1 bytes that was met, if any
    // The quick test: the last eight of the first len_ + 1 bytes, and masks of those that have to
    // agree.
    u64 window_;
    const u8* shifted_text_;
    u64 needed_if_farther_ = low_bytes(min_len);
    u64 needed_if_nearer_ = low_bytes(min_len);
};

/// The quick test of a look-ahead: compares eight bytes from `offset` on.
struct lookahead_test {
    u32 offset;
    u64 needed; // mask of the bytes that have to agree
};

/// A candidate that wins shares with pos + Ahead the byte at reject_offset() and the first
/// best.len - 1 - Ahead bytes (even extended back, it is at most one byte shorter than the match),
/// at least four.
template <u32 Ahead>
lookahead_test test_for(const found_match& best)
{
    const u32 last = reject_offset<Ahead>(best);
    const u32 shared = std::max(best.len - 1 - Ahead, 4U);
    const u32 offset = last > 7 ? last - 7 : 0;
    return {offset, low_bytes(shared - offset) | u64{0xFF} << 8 * (last - offset)};
}

/// False if `cand` can neither replace the match nor make the position a literal.  Unless it
/// extends back, it makes a literal only if it is longer by Ahead bytes, or by Ahead - 1 and nearer
/// by a factor of eight.
template <u32 Ahead>
bool may_beat(const block_text& text, u32 pos, u32 cand, const found_match& best)
{
    const u32 next = pos + Ahead;
    const u32 offset = best.len + Ahead - 4;
    return extends_back<Ahead>(text, pos, cand) || next - cand < best.dist >> 3 ||
           text.same_word(next + offset, cand + offset);
}

} // namespace

found_match walk_latest_first::find_best(const block_text& text, const ring_table& table,
                                         const u32* bucket, u32 pos)
{
    assert(text.size <= max_positions);
    // Let m be the length of the longest candidates, and d the nearest of them.  Unless a candidate
    // of m - 1 bytes is nearer than d by a factor of eight, d replaces whichever is the best match
    // when it is met, and none that is met later replaces d.  So d can be found in any order.
    longest_match longest(text, pos);
    const u32* const oldest = bucket + table.latest(bucket) + 1;
    const u32* const end = bucket + table.size();
    for (const u32* entry = oldest; entry != bucket;) {
        longest.compare(ring_table::position(*--entry)); // these entries are filled
    }
    for (const u32* entry = oldest; entry != end && *entry != 0; ++entry) {
        longest.compare(ring_table::position(*entry));
    }
    if (longest.depends_on_order()) return walk_in_order::find_best(text, table, bucket, pos);
    return longest.match();
}

template <u32 Ahead>
lookahead_result walk_latest_first::look_ahead(const block_text& text, const ring_table& table,
                                               const u32* bucket, u32 pos, found_match best)
{
    // The values of the quick test stay in registers because calls are rare, thanks to may_beat(),
    // and out of line.
    const u32 next = pos + Ahead;
    lookahead_test test = test_for<Ahead>(best);
    const u8* shifted_text = text.data + test.offset;
    u64 window = load_u64(shifted_text + next);
    const u32* const end = bucket + table.size();
    const u32* entry = bucket;
    do {
        const u32 cand = ring_table::position(*entry);
        if (((load_u64(shifted_text + cand) ^ window) & test.needed) == 0 &&
            may_beat<Ahead>(text, pos, cand, best)) {
            const lookahead_result result = try_lookahead_out_of_line<Ahead>(text, pos, cand, best);
            if (result.literal) return result;
            best = result.best;
            test = test_for<Ahead>(best);
            shifted_text = text.data + test.offset;
            window = load_u64(shifted_text + next);
        }
        ++entry;
    } while (entry != end && *entry != 0);
    return {best, false};
}

template lookahead_result walk_latest_first::look_ahead<1>(const block_text&, const ring_table&,
                                                           const u32*, u32, found_match);
template lookahead_result walk_latest_first::look_ahead<2>(const block_text&, const ring_table&,
                                                           const u32*, u32, found_match);

} // namespace quarnex
