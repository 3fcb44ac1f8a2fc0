#include "match/nearest_search.h"

#include "match/used_matches.h"
#include "match/wide_blocks.h"
#include "support/limited_allocator.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::search_step;
using steps = std::vector<search_step>;

/// With 32-bit addresses there are no trees.
constexpr bool trees = sizeof(void*) > sizeof(u32);

/// A nearest_search and a trie, which are asked the same.
class search_visitor {
  public:
    search_visitor(nearest_search& search, const block_text& text, u32 min_length)
        : search_(search), trie_(text, min_length)
    {
    }

    void find(u32 pos)
    {
        note(pos, 1);
        if (!failure_.empty()) return;
        const auto records = search_.find(pos);
        failure_ = trie_.compare(records, search_.exact_lengths(), pos);
    }
    void insert(u32 pos, u32 count)
    {
        note(pos, count);
        search_.insert(pos, count);
        trie_.insert(pos, count);
    }
    const std::string& failure() const { return failure_; }
    /// True if a position was inserted again.
    bool returned() const { return returned_; }

  private:
    void note(u32 pos, u32 count)
    {
        returned_ = returned_ || pos < next_;
        next_ = pos + count;
    }

    u32 next_ = 1;
    bool returned_ = false;
    nearest_search& search_;
    test::trie_reference trie_;
    std::string failure_;
};

/// Expects the matches of a trie, and that the search starts with a tree if `tree`, and ends with
/// one if it doesn't return.
void expect_matches_of_the_trie(const bytes& block, const steps& way, bool tree,
                                const std::string& name, const allocator& source = system_allocator)
{
    const auto size = static_cast<u32>(block.size());
    const auto text = test::text_for_trie(block);
    for (const u32 min_length : {2U, 3U}) {
        nearest_search search({text.get(), size}, min_length, source);
        ASSERT_EQ(search.exact_lengths(), tree ? max_tree_length : 0) << name;
        search_visitor visitor(search, {text.get(), size}, min_length);
        test::follow_steps(size, way, visitor);
        ASSERT_EQ(visitor.failure(), "")
            << name << ", " << size << " bytes, from length " << min_length;
        ASSERT_EQ(search.exact_lengths(), tree && !visitor.returned() ? max_tree_length : 0)
            << name;
    }
}

/// Steps that return to an earlier position up to `returns` times.
steps random_steps(u64 seed, u32 returns)
{
    test::random_source random(seed);
    steps made{{search_step::find, 2 + random.below(100)}};
    for (u32 k = 3 + random.below(20); k != 0; --k) {
        const u32 kind = random.below(6);
        made.push_back({kind < 3   ? search_step::find
                        : kind < 5 ? search_step::insert
                                   : search_step::leave_out,
                        1 + random.below(1U << random.below(9))});
        if (returns == 0 || random.below(4) != 0) continue;
        made.push_back({search_step::go_back, 1 + random.below(1U << random.below(10))});
        --returns;
        made.push_back({random.below(2) == 0 ? search_step::find : search_step::insert,
                        1 + random.below(300)});
    }
    made.push_back({search_step::find, 40});
    return made;
}

TEST(nearest_search, has_a_tree_for_blocks_of_1024_bytes_with_many_keys)
{
    for (const char* name : {"random", "text", "records", "machine_code", "two_symbols"}) {
        for (const u32 size : {1023U, 1024U, 100000U}) {
            const bytes block = test::find_shape(name).make(size, 1);
            ASSERT_NO_FATAL_FAILURE(expect_matches_of_the_trie(block, random_steps(size, 0),
                                                               trees && size >= 1024, name));
        }
    }
}

TEST(nearest_search, has_a_trie_for_blocks_with_few_keys)
{
    for (const char* name : {"zeros", "short_period", "fibonacci"})
        for (const u32 size : {12000U, 60000U})
            ASSERT_NO_FATAL_FAILURE(expect_matches_of_the_trie(test::find_shape(name).make(size, 1),
                                                               random_steps(size, 2), false, name));
}

TEST(nearest_search, of_short_blocks)
{
    for (const auto& shape : test::all_shapes())
        for (u32 size = 0; size < 20; ++size)
            ASSERT_NO_FATAL_FAILURE(expect_matches_of_the_trie(
                shape.make(size, size), {{search_step::find, 1}}, false, shape.name));
}

/// True if a search of the block starts with a tree.
bool has_tree(const bytes& block)
{
    const auto text = test::text_for_trie(block);
    return nearest_search({text.get(), static_cast<u32>(block.size())}, 2, system_allocator)
               .exact_lengths() != 0;
}

TEST(nearest_search, equals_the_trie_after_positions_were_inserted_again)
{
    for (const auto& shape : test::all_shapes()) {
        for (u64 seed = 1; seed <= 12; ++seed) {
            const bytes block = shape.make(4096 + static_cast<usize>(seed) * 700, seed);
            const steps way = random_steps(seed, 1 + static_cast<u32>(seed % 4));
            ASSERT_NO_FATAL_FAILURE(
                expect_matches_of_the_trie(block, way, has_tree(block), shape.name));
        }
    }
}

TEST(nearest_search, equals_the_trie_with_many_children_and_forks_inserted_again)
{
    for (u64 seed = 1; seed <= 12; ++seed) {
        const bytes wide =
            test::wide_branch(1 + static_cast<u32>(seed % 4), 256, 1500, seed % 2 == 0, seed);
        const bytes forked =
            test::joined({test::forked_keys(20, seed), test::find_shape("random").make(9000, seed),
                          test::forked_keys(20, seed)});
        for (const bytes& block : {wide, forked})
            ASSERT_NO_FATAL_FAILURE(expect_matches_of_the_trie(
                block, random_steps(seed, static_cast<u32>(seed % 3)), has_tree(block), "keys"));
    }
}

TEST(nearest_search, equals_the_trie_if_the_end_is_inserted_again)
{
    // Keys that the block's end cuts, followed by longer ones.
    for (u32 back = 1; back < 300; back += 7) {
        for (const char* name : {"text", "mixture", "runs", "two_symbols"}) {
            const bytes block = test::find_shape(name).make(4500, back);
            const steps way{{search_step::find, 4499 - back / 3},
                            {search_step::go_back, back},
                            {search_step::insert, back / 2},
                            {search_step::go_back, back / 4},
                            {search_step::find, 5000}};
            ASSERT_NO_FATAL_FAILURE(expect_matches_of_the_trie(block, way, has_tree(block), name));
        }
    }
}

TEST(nearest_search, takes_no_more_memory_than_announced)
{
    const bytes block = test::find_shape("text").make(100000, 1);
    const steps way{
        {search_step::find, 90000}, {search_step::go_back, 500}, {search_step::find, 10000}};
    test::limited_allocator memory;
    memory.refuse_above(nearest_search::memory_for(100000));
    ASSERT_NO_FATAL_FAILURE(expect_matches_of_the_trie(block, way, trees, "text", memory.get()));
    EXPECT_EQ(memory.in_use(), 0U);
}

TEST(nearest_search, without_memory_for_the_tree_has_a_trie)
{
    if (!trees) GTEST_SKIP() << "has no trees";
    const bytes block = test::wide_branch(2, 256, 3000, true, 1);
    ASSERT_TRUE(has_tree(block));
    for (u64 refused = 1; refused <= 3; ++refused) {
        test::limited_allocator memory;
        for (const u32 returns : {0U, 2U}) {
            memory.refuse_call(memory.calls() + refused);
            const auto text = test::text_for_trie(block);
            const auto size = static_cast<u32>(block.size());
            nearest_search search({text.get(), size}, 2, memory.get());
            EXPECT_EQ(search.exact_lengths(), 0U);
            search_visitor visitor(search, {text.get(), size}, 2);
            test::follow_steps(size, random_steps(refused, returns), visitor);
            EXPECT_EQ(visitor.failure(), "");
        }
        EXPECT_EQ(memory.in_use(), 0U);
    }
}

TEST(nearest_search, without_any_memory_finds_nothing)
{
    const bytes block = test::find_shape("text").make(6000, 1);
    const auto text = test::text_for_trie(block);
    test::limited_allocator memory;
    memory.refuse_from(0);
    nearest_search search({text.get(), 6000}, 2, memory.get());
    search.insert(1, 3000);
    for (u32 pos = 3001; pos < 6000; ++pos) EXPECT_TRUE(search.find(pos).empty());
}

TEST(nearest_search, without_memory_for_a_trie_of_positions_inserted_again_stays_valid)
{
    if (!trees) GTEST_SKIP() << "has no trees";
    const bytes block = test::find_shape("text").make(6000, 1);
    const auto text = test::text_for_trie(block);
    test::limited_allocator memory;
    {
        nearest_search search({text.get(), 6000}, 2, memory.get());
        ASSERT_NE(search.exact_lengths(), 0U);
        search.insert(1, 3000);
        memory.refuse_from(0);
        for (u32 pos = 2000; pos < 6000; ++pos)
            for (const trie_record& record : search.find(pos))
                ASSERT_GE(test::shared_bytes({text.get(), 6000}, std::min(record.pos, pos),
                                             std::max(record.pos, pos), record.length),
                          record.length);
    }
    EXPECT_EQ(memory.in_use(), 0U);
}

} // namespace
} // namespace quarnex
