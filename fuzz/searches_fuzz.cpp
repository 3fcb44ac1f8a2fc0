// fuzz/searches_fuzz.cpp - compares the match finders of level 8, and those of level 9
//
// Level 9: the LCP tree with the trie, while both search, insert, skip and insert again the same
// positions.  Level 8: the match lists from the tree with those from merging intervals.
//
//     | options: 1 | number of steps: 1 | steps: 2 each | program of the block |
//
// The options' lowest bit selects the minimum length; the four highest, all set, a larger block.  A
// step is one of four actions (2 bits) and a number of positions (14 bits).  The program makes a
// block with long repeats and branches of many children from few bytes; its commands are
//
//     0 to 3    literals, 1 to 4 and the rest of the byte
//     4         a run: length (1), byte
//     5         a copy: distance (2), length (2)
//     6         a branch: length of its key (1), number of children (1), first child (1)
//     7         a copy with one byte changed at its end: distance (2), length (1)
#include "fuzz_target.h"
#include "input_bytes.h"
#include "match/nearest_search.h"
#include "match/path_lists.h"
#include "match/used_matches.h"

#include <span>
#include <string>

namespace quarnex::fuzz {
namespace {

using test::search_step;

constexpr usize max_block = 6 << 10;        // nearest_search has trees from 1 KiB
constexpr usize max_large_block = 40 << 10; // with intervals of more than max_full_interval

/// Appends what the commands of a program make.
class block_maker {
  public:
    explicit block_maker(input_bytes& program) : program_(program) {}

    bytes make(usize limit)
    {
        while (!program_.empty() && block_.size() < limit) run_command();
        if (block_.size() > limit) block_.resize(limit);
        return block_;
    }

  private:
    void run_command()
    {
        const u32 command = program_.take();
        switch (command % 8) {
        case 4:
            make_run();
            break;
        case 5: {
            const u32 distance = program_.take(2);
            copy(distance, program_.take(2) % 8192);
            break;
        }
        case 6:
            make_branch();
            break;
        case 7: {
            const u32 distance = program_.take(2);
            copy(distance, program_.take() + 1);
            block_.back() ^= static_cast<u8>(1 + command / 8);
            break;
        }
        default:
            for (u32 k = command % 8 + 1; k != 0; --k) put(program_.take() + command / 8);
        }
    }

    void put(u32 byte) { block_.push_back(static_cast<u8>(byte)); }

    void make_run()
    {
        const u32 length = program_.take() + 1;
        const u32 byte = program_.take();
        block_.insert(block_.end(), length, static_cast<u8>(byte));
    }

    void copy(u32 distance, u32 length)
    {
        if (block_.empty()) put(0);
        const usize from = block_.size() - 1 - distance % block_.size();
        for (usize k = 0; k < length; ++k) put(block_[from + k]);
    }

    /// Repeats the last bytes, each time followed by another byte.
    void make_branch()
    {
        const usize key = std::min<usize>(program_.take() + 1, block_.size());
        const u32 children = program_.take() + 1;
        const u32 first = program_.take();
        const usize from = block_.size() - key;
        for (u32 k = 0; k < children && block_.size() < max_large_block; ++k) {
            put(first + k);
            for (usize at = 0; at < key; ++at) put(block_[from + at]);
        }
    }

    input_bytes& program_;
    bytes block_;
};

std::vector<search_step> take_steps(input_bytes& input)
{
    std::vector<search_step> steps;
    for (u32 count = input.take() % 32; count != 0; --count) {
        const u32 word = input.take(2);
        steps.push_back({static_cast<search_step::kind>(word & 3), word >> 2});
    }
    if (steps.empty()) steps.push_back({search_step::find, 1});
    return steps;
}

/// Calls the same functions of a search and the trie, and compares the results.  A tree accepts
/// each position only once.
template <class Search, bool Returns>
class compared_search {
  public:
    compared_search(Search& search, const block_text& text, u32 min_length)
        : search_(search), trie_(text, min_length)
    {
    }

    void find(u32 pos)
    {
        if (!Returns && pos < next_) return;
        next_ = pos + 1;
        std::string failure;
        if constexpr (Returns) {
            const std::span<const trie_record> records = search_.find(pos);
            failure = trie_.compare(records, search_.exact_lengths(), pos);
        } else {
            failure = trie_.compare(search_.find(pos, records_), max_tree_length, pos);
        }
        require(failure.empty(), failure.c_str());
    }

    void insert(u32 pos, u32 count)
    {
        if constexpr (!Returns) {
            const u32 entered = std::min(count, next_ - std::min(pos, next_));
            pos += entered;
            count -= entered;
            if (count == 0) return;
        }
        next_ = pos + count;
        search_.insert(pos, count);
        trie_.insert(pos, count);
    }

  private:
    Search& search_;
    test::trie_reference trie_;
    trie_records records_;
    u32 next_ = 1;
};

void compare_searches(const block_text& text, u32 min_length, std::span<const search_step> steps)
{
    nearest_search search(text, min_length, system_allocator);
    test::follow_steps(text.size, steps,
                       compared_search<nearest_search, true>(search, text, min_length));
    nearest_tree tree;
    if (!tree.build(text, min_length, system_allocator)) return; // long paths
    test::follow_steps(text.size, steps,
                       compared_search<nearest_tree, false>(tree, text, min_length));
}

void compare_lists(const block_text& text)
{
    suffix_arrays for_tree, for_merging;
    require(for_tree.allocate(text.size, true, system_allocator) &&
                for_merging.allocate(text.size, false, system_allocator) &&
                for_tree.sort(text, match_list_scale) && for_merging.sort(text, match_list_scale),
            "the suffixes are sorted");
    bytes mlen(text.size);
    std::vector<u32> mpos(text.size);
    sa_match_lists(for_merging.sa, text.size, for_merging.lcp, mpos.data(), mlen.data());
    const auto lists = path_match_lists(text, for_tree, system_allocator);
    for (u32 pos = 0; pos < text.size; ++pos) {
        require(lists.mlen[pos] == mlen[pos], "a match of the tree has the same length");
        require(mlen[pos] == 0 || lists.mpos[pos] == mpos[pos],
                "a match of the tree is at the same position");
    }
}

void search_any(std::span<const u8> input)
{
    input_bytes reader(input);
    const u32 options = reader.take();
    const u32 min_length = 2 + (options & 1);
    const std::vector<search_step> steps = take_steps(reader);
    const bytes block =
        block_maker(reader).make((options & 0xF0) == 0xF0 ? max_large_block : max_block);
    if (block.empty()) return;
    const auto buffer = test::text_for_trie(block);
    const block_text text{buffer.get(), static_cast<u32>(block.size())};
    compare_searches(text, min_length, steps);
    compare_lists(text);
}

/// The start of an input.
bytes seed_of(u8 options, std::initializer_list<search_step> steps, const bytes& program)
{
    bytes seed{options, static_cast<u8>(steps.size())};
    for (const auto& [action, count] : steps) {
        const u32 word = action | count << 2;
        seed.push_back(static_cast<u8>(word));
        seed.push_back(static_cast<u8>(word >> 8));
    }
    return test::joined({seed, program});
}

/// A program of literals that makes `block`.
bytes literals_of(const bytes& block)
{
    bytes program;
    for (usize k = 0; k + 4 <= block.size(); k += 4) {
        program.push_back(3);
        program.insert(program.end(), block.begin() + static_cast<std::ptrdiff_t>(k),
                       block.begin() + static_cast<std::ptrdiff_t>(k) + 4);
    }
    return program;
}

} // namespace

std::vector<bytes> make_seeds()
{
    using enum search_step::kind;
    const bytes key = literals_of(test::find_shape("random").make(300, 1));
    const std::vector<bytes> programs{
        // Branches of 256 children with keys of 1 to 3 bytes, then copies of all.
        {3, 1, 2, 3, 4, 6, 0, 255, 0, 6, 1, 255, 9, 6, 2, 255, 77, 5, 0, 0, 0, 16},
        // Runs, and runs with a byte changed.
        {4, 255, 0, 4, 255, 0, 4, 255, 7, 5, 0, 2, 0, 31, 7, 255, 0, 255, 5, 255, 1, 0, 9},
        // A key of 256 bytes, repeated, with other bytes after 255.
        test::joined({key, {5, 255, 0, 0, 1,   5, 255, 0,  0,   1, 7,   255, 0, 255, 5, 255,
                            1, 0,   2, 7, 255, 0, 255, 15, 255, 0, 255, 5,   0, 4,   0, 8}}),
        // A branch of 90 children below 255 bytes.
        test::joined({key, {6, 254, 90, 5, 5, 0, 32, 0, 16}}),
        test::joined({key, {6, 253, 200, 5}}),
        literals_of(test::find_shape("text").make(3000, 1)),
        test::joined({literals_of(test::find_shape("text").make(2000, 1)), {5, 0, 3, 0, 12}}),
        literals_of(test::find_shape("machine_code").make(3000, 1)),
        literals_of(test::find_shape("two_symbols").make(3000, 1)),
    };
    std::vector<bytes> seeds;
    for (const bytes& program : programs) {
        for (const u8 options : {u8{0}, u8{1}}) {
            seeds.push_back(seed_of(options, {{find, 1}}, program));
            seeds.push_back(
                seed_of(options, {{find, 300}, {insert, 130}, {leave_out, 50}}, program));
            seeds.push_back(seed_of(options,
                                    {{find, 2000},
                                     {leave_out, 100},
                                     {find, 1500},
                                     {go_back, 300},
                                     {find, 200},
                                     {insert, 90},
                                     {go_back, 500}},
                                    program));
        }
    }
    seeds.push_back(seed_of(0xF0, {{find, 1}}, programs[1]));
    return seeds;
}

} // namespace quarnex::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    quarnex::fuzz::search_any({data, size});
    return 0;
}
