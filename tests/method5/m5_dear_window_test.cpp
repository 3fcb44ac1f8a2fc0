// A block with literals so dear that a window of level 9 ends early.
//
// The forward parse compares the costs of its nodes up to 2^30.  At 4096 for a bit that is 64 bits
// for each of the 4096 positions of a window, where a literal of a fresh model has 9.  It takes
// a block that teaches the model the opposite of what follows, and no match may help there.
//
// The bytes of a set S have an upper nibble h and the lower nibble pattern(h) << 2 | r; h and r are
// any, which makes 64.  After the bytes a and b of S, the next one of S has the upper nibble
// dear_nibble(a, b); r is free.  In this order all 4096 pairs of bytes of S come once: that is the
// dear run.  Everything before the run avoids these pairs, so there is no match of two bytes in it,
// and teaches for each context in it
//
//   - the flag of a match, up to 10 bits for a literal,
//   - the inverse of the upper nibble, 4 times up to 10 bits,
//   - the inverse of the two pattern bits, 2 times up to 10 bits.
//
// With two bits for r this is up to 72 bits for a literal; here it is 68 on average, and the
// window ends after 3841 literals.
#include "plain/m5_plain.h"
#include "support/codec_runs.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <vector>

namespace quarnex {
namespace {

using test::bytes;
using test::random_source;

constexpr u32 nibbles = 16;
constexpr u32 free_values = 4;                   // of r
constexpr u32 set_bytes = nibbles * free_values; // in S
constexpr u32 pattern_low = 1;                   // the bits of a pattern
constexpr u32 pattern_high = 2;
constexpr u32 all_of_nibble = 0xF;

constexpr u32 pattern(u32 high_nibble)
{
    return high_nibble & 3;
}

constexpr u8 byte_of(u32 high_nibble, u32 pattern_bits, u32 r)
{
    return static_cast<u8>(high_nibble << 4 | pattern_bits << 2 | r);
}

constexpr u8 set_byte(u32 high_nibble, u32 r)
{
    return byte_of(high_nibble, pattern(high_nibble), r);
}

constexpr bool is_in_set(u8 byte)
{
    return (byte >> 2 & 3) == pattern(byte >> 4);
}

constexpr u32 low_nibble(u8 byte)
{
    return byte & 0xF;
}

/// The upper nibble of the next byte of the run.  Of the byte before the last one the model sees
/// the lower nibble only.
constexpr u32 dear_nibble(u32 low_nibble_before, u8 last)
{
    return low_nibble_before ^ (last + 1U) * 0x9E3779B1 >> 28;
}

/// The dear run: an Eulerian circuit (Hierholzer 1873) through the pairs of a lower nibble and the
/// byte after it, of which each has an edge for each r.
bytes dear_run()
{
    struct place {
        u32 low_nibble_before;
        u8 last;
    };
    std::array<std::array<u32, 256>, nibbles> taken{}; // edges, by place
    std::vector<place> path{{low_nibble(set_byte(0, 0)), set_byte(0, 0)}};
    bytes run;
    while (!path.empty()) {
        const place at = path.back();
        u32& r = taken[at.low_nibble_before][at.last];
        if (r == free_values) {
            run.push_back(at.last);
            path.pop_back();
        } else {
            const u32 high_nibble = dear_nibble(at.low_nibble_before, at.last);
            path.push_back({low_nibble(at.last), set_byte(high_nibble, r++)});
        }
    }
    std::reverse(run.begin(), run.end());
    return run;
}

/// The block up to the run.
class dear_training {
  public:
    /// Visits each context of the run `rounds` times with a literal that `choose` makes of the
    /// upper nibble that the run has there.
    template <class Choose>
    void visit_contexts(u32 rounds, Choose choose)
    {
        for (; rounds != 0; --rounds) {
            std::array<bytes, nibbles> unvisited; // bytes of S by the lower nibble before them
            for (bytes& lasts : unvisited) lasts = shuffled_set();
            for (u32 visit = 0; visit < nibbles * set_bytes; ++visit) {
                // The last byte is not in S.  It serves as the one before, if it can.
                if (unvisited[low_nibble(data_.back())].empty()) {
                    const auto fullest = std::max_element(
                        unvisited.begin(), unvisited.end(),
                        [](const bytes& a, const bytes& b) { return a.size() < b.size(); });
                    add_byte_outside(static_cast<u32>(fullest - unvisited.begin()));
                }
                const u32 before = low_nibble(data_.back());
                const u8 last = unvisited[before].back();
                unvisited[before].pop_back();
                data_.push_back(last);
                data_.push_back(choose(dear_nibble(before, last)));
            }
        }
    }

    /// Adds matches of eight bytes that end in each byte of S, `rounds` of each in any order, and
    /// then `more` bytes like them.
    void add_matches(u32 rounds, u32 more)
    {
        std::vector<bytes> strings;
        for (const u8 last : shuffled_set()) {
            bytes string;
            while (string.size() < 7) {
                const auto byte = static_cast<u8>(random_.next());
                if (!is_in_set(byte)) string.push_back(byte);
            }
            string.push_back(last);
            strings.push_back(string);
        }
        for (; rounds != 0; --rounds) {
            shuffle(strings);
            for (const bytes& string : strings)
                data_.insert(data_.end(), string.begin(), string.end());
        }
        const usize round_bytes = strings.size() * strings[0].size();
        for (; more != 0; --more) data_.push_back(data_[data_.size() - round_bytes]);
    }

    u32 any_r() { return random_.below(free_values); }
    const bytes& data() const { return data_; }

  private:
    template <class T>
    void shuffle(std::vector<T>& items)
    {
        for (u32 left = static_cast<u32>(items.size()); left > 1; --left)
            std::swap(items[left - 1], items[random_.below(left)]);
    }

    bytes shuffled_set()
    {
        bytes all;
        for (u32 high_nibble = 0; high_nibble < nibbles; ++high_nibble)
            for (u32 r = 0; r < free_values; ++r) all.push_back(set_byte(high_nibble, r));
        shuffle(all);
        return all;
    }

    void add_byte_outside(u32 its_low_nibble)
    {
        u8 byte = 0;
        do {
            byte = static_cast<u8>(random_.below(nibbles) << 4 | its_low_nibble);
        } while (is_in_set(byte));
        data_.push_back(byte);
    }

    bytes data_{0x04, 0x04}; // not in S
    random_source random_{1};
};

/// Bytes that move the start of the run to the start of a window; found by trial.
constexpr u32 bytes_to_a_window = 776;

/// Everything before the run.
bytes training()
{
    dear_training made;
    // First the inverse of the lower pattern bit, whose context has the upper one as it is in S.
    // The inverse of the nibble that the run has in one context is that of another context, so all
    // patterns are visited.
    made.visit_contexts(140, [&](u32 dear) {
        const u32 high_nibble = dear ^ all_of_nibble;
        return byte_of(high_nibble, pattern(high_nibble) ^ pattern_low, made.any_r());
    });
    // Then that of the upper one, which has learned its value in S until now.
    made.visit_contexts(380, [&](u32 dear) {
        const u32 high_nibble = dear ^ all_of_nibble;
        return byte_of(high_nibble, pattern(high_nibble) ^ pattern_high, made.any_r());
    });
    made.add_matches(400, bytes_to_a_window);
    return made.data();
}

TEST(m5_encoder, at_level_9_a_window_of_very_dear_literals_ends_early)
{
    bytes block = training();
    const auto run_start = static_cast<u32>(block.size());
    const bytes run = dear_run();
    ASSERT_EQ(run.size(), nibbles * set_bytes * free_values + 1);
    block.insert(block.end(), run.begin(), run.begin() + 3900);
    // A known string, twice.  When the window has ended before it, the trie holds both: the first
    // one finds the second under its bytes, which is no candidate, and is coded without a match.
    const bytes known(block.begin() + 100, block.begin() + 140);
    for (int copy = 0; copy < 2; ++copy) block.insert(block.end(), known.begin(), known.end());
    block.insert(block.end(), run.begin() + 3900, run.end());

    const auto parameters = test::parameters_of(5, 9);
    const bytes payload = test::encode(block, parameters);
    EXPECT_TRUE(test::decode(payload, block.size(), parameters) == block);

    const test::m5_plain_parse plain = test::m5_plain_parse_forward(block);
    EXPECT_TRUE(payload == plain.stream);
    const auto& starts = plain.window_starts;
    const auto window = std::find(starts.begin(), starts.end(), run_start);
    ASSERT_GT(starts.end() - window, 1) << "no window starts with the run";
    const u32 covered = window[1] - run_start;
    EXPECT_LT(covered, 4096U);
    EXPECT_GE(covered, 3641U); // which 2^18 bits suffice for at 72 bits each
}

} // namespace
} // namespace quarnex
