// match/used_matches.h - compares the matches that two searches of level 9 give to the parse
//
// The records of a trie and of a tree differ: lengths are lower bounds in one, exact in the other.
// What counts is the position that the parse uses for each length.
#pragma once

#include "match/trie.h"
#include "support/shapes.h"

#include <algorithm>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace quarnex::test {

/// A match that the parse uses for its length and all shorter ones above the previous match.
struct used_match {
    u32 len;
    u32 pos;
    bool operator==(const used_match&) const = default;
};
using used_matches = std::vector<used_match>;

/// Number of bytes that two positions of a block share, up to its end or `limit`.
inline u32 shared_bytes(const block_text& text, u32 earlier, u32 pos, u32 limit)
{
    return equal_bytes(text.data + earlier, text.data + pos, std::min(limit, text.size - pos));
}

/// Longer matches count as equal in length.
inline constexpr u32 longest_compared = 2000;

/// The matches of `records` that the parse uses at `pos`: each longer than those before.  The first
/// has at least `min_length` bytes.
inline used_matches matches_to_use(std::span<const trie_record> records, const block_text& text,
                                   u32 pos, u32 min_length)
{
    used_matches used;
    u32 longest = min_length - 1;
    for (const trie_record& record : records) {
        if (record.pos >= pos) continue; // inserted before the search returned to `pos`
        const u32 len = shared_bytes(text, record.pos, pos, longest_compared);
        if (len <= longest) continue;
        longest = len;
        used.push_back({len, record.pos});
    }
    return used;
}

/// True if each length below `exact_lengths` is that of the match, and lengths do not fall.
inline bool lengths_are_exact(std::span<const trie_record> records, const block_text& text, u32 pos,
                              u32 exact_lengths)
{
    u32 before = 0;
    for (const auto& [length, at] : records) {
        if (at >= pos || length < before) return false;
        before = length;
        const u32 shared = shared_bytes(text, at, pos, exact_lengths);
        if (length < exact_lengths ? shared != length : shared < exact_lengths) return false;
    }
    return true;
}

/// What a search does from one position on.
struct search_step {
    enum kind { find, insert, leave_out, go_back };
    kind action;
    u32 count; // of positions
};

/// Goes through a block by repeating `steps`: calls visitor.find(pos) or visitor.insert(pos,
/// count).  Returns to earlier positions only in the first round.
template <class Visitor>
void follow_steps(u32 size, std::span<const search_step> steps, Visitor&& visitor)
{
    bool first_round = true, moved = false;
    u32 pos = 1;
    while (pos < size) {
        for (const auto& [action, wanted] : steps) {
            const u32 count = std::min(wanted, size - pos);
            switch (action) {
            case search_step::find:
                for (const u32 end = pos + count; pos != end; ++pos) visitor.find(pos);
                break;
            case search_step::insert:
                visitor.insert(pos, count);
                pos += count;
                break;
            case search_step::leave_out:
                pos += count;
                break;
            case search_step::go_back:
                if (first_round) pos -= std::min(wanted, pos - 1);
            }
            moved = moved || action != search_step::go_back;
            if (pos == size) return;
        }
        first_round = false;
        if (!moved) return;
        moved = std::any_of(steps.begin(), steps.end(), [](const search_step& step) {
            return step.action != search_step::go_back && step.count != 0;
        });
        if (!moved) return;
    }
}

/// A copy of a block in a buffer that ends with the zeros a trie may read.
inline std::unique_ptr<u8[]> text_for_trie(const bytes& block)
{
    auto text = std::make_unique<u8[]>(block.size() + trie_reads_past);
    std::copy(block.begin(), block.end(), text.get());
    return text;
}

inline std::string to_string(const used_matches& matches)
{
    std::string text;
    for (const auto& [len, pos] : matches)
        text += ' ' + std::to_string(len) + '@' + std::to_string(pos);
    return text;
}

/// The matches that the trie finds, for comparison with another search of the same steps.
class trie_reference {
  public:
    trie_reference(const block_text& text, u32 min_length)
        : text_(text), min_length_(min_length), trie_(text, system_allocator)
    {
    }

    void insert(u32 pos, u32 count) { trie_.trie_insert(pos, count); }

    /// Returns what is wrong with the records of the other search at `pos`, or nothing.
    std::string compare(std::span<const trie_record> records, u32 exact_lengths, u32 pos)
    {
        const u32 count = trie_.trie_matches(pos, records_);
        const used_matches expected =
            matches_to_use({records_.data(), count}, text_, pos, min_length_);
        const used_matches found = matches_to_use(records, text_, pos, min_length_);
        const std::string where = " at " + std::to_string(pos) + ':';
        if (exact_lengths != 0 && !lengths_are_exact(records, text_, pos, exact_lengths))
            return "wrong lengths" + where + to_string(found);
        if (found == expected) return {};
        return "the trie has" + where + to_string(expected) + ", the other search" +
               to_string(found);
    }

  private:
    block_text text_;
    u32 min_length_;
    trie trie_;
    trie_records records_;
};

} // namespace quarnex::test
