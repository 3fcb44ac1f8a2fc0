#include "match/bucket_search.h"

#include "support/limited_allocator.h"
#include "support/token_recorder.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using namespace std::string_view_literals;
using test::bytes;
using test::bytes_of;
using test::literals;
using test::plain_token;
using test::spelled_out;
using test::tokens_of;

// The tables alone.

constexpr i32 table_hash_bits = 10;

/// The number whose product with hash4's factor is 1 modulo 2^32.
constexpr u32 inverse_of_factor()
{
    u32 inverse = 1;
    for (int round = 0; round < 32; ++round) inverse *= 2 - 123456791U * inverse;
    return inverse;
}

/// A block whose position 4 i has the hash value hashes[i].
class hashed_block {
  public:
    explicit hashed_block(const std::vector<u32>& hashes) : bytes_(4 * hashes.size())
    {
        for (usize i = 0; i < hashes.size(); ++i) {
            const u32 product = hashes[i] << (32 - table_hash_bits);
            store_u32(&bytes_[4 * i], product * inverse_of_factor());
        }
    }
    operator block_text() const { return {bytes_.data(), static_cast<u32>(bytes_.size())}; }

  private:
    bytes bytes_;
};

template <class Table>
Table small_table(i32 chain_bits = 0)
{
    constexpr u32 positions = 100;
    static scratch memory(system_allocator);
    return {{table_hash_bits, chain_bits}, positions, memory};
}

template <class Table>
void insert(Table& table, const block_text& text, u32 pos)
{
    table.insert(table.buckets().at(text, pos), pos);
}

template <class Table>
std::vector<u32> candidates(const Table& table, const block_text& text, u32 pos)
{
    std::vector<u32> found;
    for (typename Table::walk walk(table, table.buckets().at(text, pos)); !walk.done(); walk.next())
        found.push_back(walk.cand());
    return found;
}

using positions = std::vector<u32>;

TEST(pair_table, starts_full_of_its_start_position)
{
    const hashed_block text({5, 1023});
    EXPECT_EQ(candidates(small_table<pair_table<0>>(), text, 0), (positions{0, 0}));
    EXPECT_EQ(candidates(small_table<pair_table<1>>(), text, 4), (positions{1, 1}));
}

TEST(pair_table, an_insertion_moves_the_first_to_the_second_place)
{
    const hashed_block text({0, 5, 5, 5});
    auto table = small_table<pair_table<1>>();
    insert(table, text, 4);
    EXPECT_EQ(candidates(table, text, 4), (positions{4, 1}));
    insert(table, text, 8);
    EXPECT_EQ(candidates(table, text, 4), (positions{8, 4}));
    insert(table, text, 12);
    EXPECT_EQ(candidates(table, text, 4), (positions{12, 8}));
}

TEST(pair_table, the_second_place_is_the_next_buckets_first)
{
    const hashed_block text({0, 5, 5, 6});
    auto table = small_table<pair_table<0>>();
    insert(table, text, 4);
    insert(table, text, 8);
    EXPECT_EQ(candidates(table, text, 12), (positions{4, 0}));
    insert(table, text, 12); // entry 6 is 12, entry 7 what it was, 4
    EXPECT_EQ(candidates(table, text, 8), (positions{8, 12}));
    EXPECT_EQ(candidates(table, text, 12), (positions{12, 4}));
}

TEST(pair_table, the_highest_hash_value_has_a_second_place_too)
{
    const hashed_block text({0, 1023, 1023});
    auto table = small_table<pair_table<0>>();
    insert(table, text, 4);
    insert(table, text, 8);
    EXPECT_EQ(candidates(table, text, 4), (positions{8, 4}));
}

TEST(pair_table, enters_the_last_position_of_a_match_before_the_one_in_front_of_it)
{
    const bytes zeros(40); // all positions have the same hash value
    const block_text text{zeros.data(), 20};
    auto table = small_table<pair_table<0>>();
    table.insert_end(text, 12, 4);
    EXPECT_EQ(candidates(table, text, 0), (positions{10, 11}));
}

TEST(ring_table, looks_at_the_first_entry_also_of_an_empty_bucket)
{
    // It holds no position, which reads as position 0.
    const hashed_block text({5});
    EXPECT_EQ(candidates(small_table<ring_table>(2), text, 0), (positions{0}));
}

TEST(ring_table, the_first_insertion_lands_in_the_second_entry)
{
    const hashed_block text({0, 5, 5, 5, 5, 5});
    auto table = small_table<ring_table>(2);
    insert(table, text, 4);
    EXPECT_EQ(candidates(table, text, 4), (positions{0, 4}));
    insert(table, text, 8);
    EXPECT_EQ(candidates(table, text, 4), (positions{0, 4, 8}));
    insert(table, text, 12);
    EXPECT_EQ(candidates(table, text, 4), (positions{0, 4, 8, 12}));
    insert(table, text, 16); // the first entry at last
    EXPECT_EQ(candidates(table, text, 4), (positions{16, 4, 8, 12}));
    insert(table, text, 20);
    EXPECT_EQ(candidates(table, text, 4), (positions{16, 20, 8, 12}));
}

TEST(ring_table, a_ring_of_256_uses_all_of_the_cursors_bits)
{
    const hashed_block text(std::vector<u32>(300, 5));
    auto table = small_table<ring_table>(8);
    for (u32 i = 1; i <= 257; ++i) insert(table, text, 4 * i);
    const positions found = candidates(table, text, 0);
    ASSERT_EQ(found.size(), 256U);
    EXPECT_EQ(found[0], 4 * 256U);
    EXPECT_EQ(found[1], 4 * 257U);
    EXPECT_EQ(found[2], 4 * 2U);
    EXPECT_EQ(found[255], 4 * 255U);
}

TEST(ring_table, an_entry_that_is_all_zero_ends_the_walk)
{
    // Bucket 7 is entries 7 to 10; its first insertion fills entry 8.  Bucket 5 reaches that too,
    // but entry 6 is empty.
    const hashed_block text({7, 5, 7});
    auto table = small_table<ring_table>(2);
    insert(table, text, 8);
    EXPECT_EQ(candidates(table, text, 4), (positions{0}));
}

TEST(ring_table, an_entry_with_a_cursor_but_without_a_position_is_a_candidate_at_position_0)
{
    // Entry 7 holds the cursor of its bucket and nothing else; bucket 6 walks over it to entry 8.
    const hashed_block text({7, 6, 7});
    auto table = small_table<ring_table>(2);
    insert(table, text, 8);
    EXPECT_EQ(candidates(table, text, 4), (positions{0, 0, 8}));
}

TEST(ring_table, an_entry_keeps_its_cursor_when_a_neighbour_writes_its_position)
{
    const hashed_block text({0, 6, 5, 6});
    auto table = small_table<ring_table>(2);
    insert(table, text, 4); // entry 7; the cursor of bucket 6 is 1
    insert(table, text, 8); // entry 6, for bucket 5
    EXPECT_EQ(candidates(table, text, 4), (positions{8, 4}));
    insert(table, text, 12); // cursor 2: entry 8.  A lost cursor would send it to entry 7 again.
    EXPECT_EQ(candidates(table, text, 4), (positions{8, 4, 12}));
    EXPECT_EQ(candidates(table, text, 8), (positions{0, 8, 4, 12}));
}

TEST(ring_table, the_rings_of_the_highest_hash_values_have_all_their_places)
{
    const hashed_block text(std::vector<u32>(5, 1023));
    auto table = small_table<ring_table>(2);
    for (u32 pos = 4; pos <= 16; pos += 4) insert(table, text, pos);
    EXPECT_EQ(candidates(table, text, 0), (positions{16, 4, 8, 12}));
}

TEST(ring_table, enters_the_last_two_positions_of_a_match_but_one_of_a_match_of_4)
{
    const bytes zeros(40);
    const block_text text{zeros.data(), 20};
    auto table = small_table<ring_table>(2);
    table.insert_end(text, 12, 4);
    EXPECT_EQ(candidates(table, text, 0), (positions{0, 11}));
    table.insert_end(text, 18, 5);
    EXPECT_EQ(candidates(table, text, 0), (positions{0, 11, 17, 16}));
}

TEST(ring_table, positions_past_16_mib_wrap)
{
    constexpr u32 past = 1 << 24;
    const bytes zeros(past + 40);
    const block_text text{zeros.data(), past + 20};
    auto table = small_table<ring_table>(2);
    insert(table, text, past - 1);
    insert(table, text, past + 5);
    insert(table, text, past); // reads as an empty entry, which ends the walk
    EXPECT_EQ(candidates(table, text, 0), (positions{0, past - 1, 5}));
}

// The searches.

template <u32 FirstPos>
constexpr auto search_pairs =
    search_buckets<pair_table<FirstPos - 1>, test::token_recorder<FirstPos>>;

template <u32 FirstPos>
constexpr auto search_rings = search_buckets<ring_table, test::token_recorder<FirstPos>>;

/// Enough for no two words of the tests below to share an entry.
constexpr search_bits roomy{16, 2};

std::vector<plain_token> pair_tokens(const bytes& block)
{
    return tokens_of<1>(search_pairs<1>, block, roomy);
}

std::vector<plain_token> ring_tokens(const bytes& block)
{
    return tokens_of<1>(search_rings<1>, block, roomy);
}

void expect_both(const bytes& block, std::initializer_list<plain_token> expected)
{
    EXPECT_EQ(pair_tokens(block), spelled_out(expected)) << "pairs";
    EXPECT_EQ(ring_tokens(block), spelled_out(expected)) << "rings";
}

TEST(pair_search, the_start_content_is_a_candidate)
{
    // Nothing enters the bytes in front of the first position.
    const bytes at_0 = bytes_of("abcd12345abcdX");
    const bytes at_1 = bytes_of("-abcd1234abcdX");
    EXPECT_EQ(pair_tokens(at_0), spelled_out({literals(8), {4, 9}, literals(1)}));
    EXPECT_EQ(tokens_of<2>(search_pairs<2>, at_0, roomy), spelled_out({literals(12)}));
    EXPECT_EQ(tokens_of<2>(search_pairs<2>, at_1, roomy),
              spelled_out({literals(7), {4, 8}, literals(1)}));
}

TEST(pair_search, no_match_starts_in_the_last_four_bytes)
{
    EXPECT_EQ(pair_tokens(bytes_of("abcdeabcd")), spelled_out({literals(8)}));
    EXPECT_EQ(pair_tokens(bytes_of("abcdeabcdX")), spelled_out({literals(4), {4, 5}, literals(1)}));
}

TEST(ring_search, a_match_may_start_in_the_last_four_bytes)
{
    EXPECT_EQ(ring_tokens(bytes_of("abcdeabcd")), spelled_out({literals(4), {4, 5}}));
}

TEST(bucket_search, a_run_is_one_match_at_distance_1)
{
    expect_both(bytes(1000), {{999, 1}});
}

TEST(bucket_search, an_older_candidate_wins_if_it_is_longer)
{
    // At 8 "abcd" finds 0.  At 14 it finds 8, four bytes at distance 6, and 0, six at 14.
    expect_both(bytes_of("abcdefX1abcdY2abcdefZ"),
                {literals(7), {4, 8}, literals(2), {6, 14}, literals(1)});
}

/// "abcde" at 0 and at `far`, and "abcd" alone five bytes in front of that.
bytes far_and_near_block(u32 far)
{
    bytes block = bytes_of("abcdeX");
    for (u32 i = 0; block.size() < far - 5; ++i) block.push_back(static_cast<u8>(0x80 + i));
    const bytes rest = bytes_of("abcdYabcdeZ");
    block.insert(block.end(), rest.begin(), rest.end());
    return block;
}

TEST(ring_search, a_candidate_one_byte_shorter_wins_if_it_is_nearer_by_more_than_eight_times)
{
    // At 48 five bytes match at distance 48 and four at distance 5: 48 >> 3 = 6.
    EXPECT_EQ(ring_tokens(far_and_near_block(48)),
              spelled_out({literals(42), {4, 43}, literals(1), {4, 5}, literals(2)}));
    // 47 >> 3 = 5.
    EXPECT_EQ(ring_tokens(far_and_near_block(47)),
              spelled_out({literals(41), {4, 42}, literals(1), {5, 47}, literals(1)}));
}

TEST(bucket_search, a_longer_match_one_ahead_is_worth_a_literal)
{
    // At 13 "abcd" gives four bytes at distance 13; one later "bcdefgh" gives seven.
    expect_both(bytes_of("abcdXbcdefghYabcdefghZ"), {literals(13), {7, 9}, literals(1)});
}

TEST(bucket_search, enters_the_second_and_the_third_position_of_a_match)
{
    // The match at 8 enters 9, "bcde", and 10, "cdef"; at 17 each of them is nearer than the first.
    expect_both(bytes_of("abcdefghabcdefgh-bcdefX"),
                {literals(7), {8, 8}, literals(1), {5, 8}, literals(1)});
    expect_both(bytes_of("abcdefghabcdefgh-cdefX"),
                {literals(7), {8, 8}, literals(1), {4, 7}, literals(1)});
}

TEST(bucket_search, a_literal_for_a_match_two_ahead_is_one_literal)
{
    // The match of "abcdefgh" at 21 enters its last two positions, 27 and 28, and not the "f" in
    // front of them.  At 38, "XfghIJ...", "Xfgh" gives four bytes.  At 39 "fghI" is known from 15
    // alone, four bytes at distance 24, which is not better; at 40 "ghIJKLMNOP" from 27, ten bytes
    // that don't reach back to 38: a literal.  At 39 they do reach back: eleven bytes.
    expect_both(bytes_of("abcdefgh1Xfgh@2fghI#3abcdefghIJKLMNOP4XfghIJKLMNOP5"),
                {literals(20), {8, 21}, literals(10), {11, 13}, literals(1)});
}

TEST(bucket_search, a_match_two_ahead_replaces_the_match_if_it_reaches_back)
{
    // The match of "abcdefgh" at 9 enters its last two positions, 15 and 16, and not 13 and 14.  At
    // 26 "efgh" finds 4, four bytes; at 27 "fghI" finds nothing; at 28 "ghIJKLMNOP" finds 15, and
    // "ef" stands in front of both.
    expect_both(bytes_of("abcdefgh1abcdefghIJKLMNOP2efghIJKLMNOP3"),
                {literals(8), {8, 9}, literals(9), {12, 13}, literals(1)});
}

TEST(ring_search, a_twice_replaced_match_passes_the_end_by_5)
{
    // "z" and nine zeros stand at 2; the last byte, at 15, is a "z": four bytes from 2.  The word
    // one later, all behind the block, is zero: it finds 3, and with the "z" in front five bytes.
    // The next finds 4, and with the "z" and the zero in front six, which beats these five.
    const bytes block = bytes_of("abz\0\0\0\0\0\0\0\0\0defz"sv);
    EXPECT_EQ(ring_tokens(block), spelled_out({literals(3), {8, 1}, literals(3), {6, 13}}));
}

TEST(ring_search, a_match_in_the_last_position_passes_the_end_by_3)
{
    // "z" and three zeros stand at 3, and nowhere are there four.
    EXPECT_EQ(ring_tokens(bytes_of("abcz\0\0\0defz"sv)), spelled_out({literals(9), {4, 7}}));
}

TEST(bucket_search, the_position_itself_is_not_extended_backwards)
{
    // At 2 zeros are known from 0 alone, at distance 2.  At 3 they are known from 2, and the byte
    // in front of that is a zero too: the match at distance 1 would be as long and nearer.
    EXPECT_EQ(tokens_of<2>(search_rings<2>, bytes(1000), roomy), spelled_out({{998, 2}}));
    constexpr auto search = search_buckets<pair_table<0>, test::token_recorder<2>>;
    EXPECT_EQ(tokens_of<2>(search, bytes(1000), roomy), spelled_out({{998, 2}}));
}

TEST(pair_search, a_run_is_found_from_position_1_where_that_is_the_start_content)
{
    EXPECT_EQ(tokens_of<2>(search_pairs<2>, bytes(1000), roomy), spelled_out({{998, 1}}));
}

TEST(ring_search, a_candidate_past_16_mib_is_farther_than_it_was)
{
    // The needle at 2^24 + 200 was entered at 100 and at 2^24 + 100, which reads as 100 too.
    constexpr u32 past = 1 << 24;
    bytes block(past + 300);
    const bytes needle = bytes_of("abcdefgh");
    for (const u32 pos : {100U, past + 100, past + 200})
        std::copy(needle.begin(), needle.end(), block.begin() + pos);
    const auto tokens = ring_tokens(block);
    EXPECT_EQ(tokens.back(), (plain_token{100, past + 100}));
    EXPECT_EQ(tokens[tokens.size() - 2], (plain_token{100, past}));
}

TEST(bucket_search, stops_when_the_writer_is_full)
{
    const bytes block = bytes_of("abcdefghijkl");
    EXPECT_EQ(tokens_of<1>(search_pairs<1>, block, roomy, 5), spelled_out({literals(5)}));
    EXPECT_EQ(tokens_of<1>(search_rings<1>, block, roomy, 5), spelled_out({literals(5)}));
}

struct ladder_step {
    u32 level;
    i32 chain_bits;
};

template <u32 FirstPos>
void expect_plain_tokens(ladder_step step, const bytes& block, i32 hash_bits)
{
    const test::plain_rules rules{FirstPos, false, false, FirstPos - 1};
    const auto search = step.level == 3 ? search_pairs<FirstPos> : search_rings<FirstPos>;
    EXPECT_TRUE(tokens_of<FirstPos>(search, block, {hash_bits, step.chain_bits}) ==
                test::plain_search(block, rules, step.level, static_cast<u32>(hash_bits),
                                   static_cast<u32>(step.chain_bits)))
        << block.size() << " bytes, " << hash_bits << " hash bits, from " << FirstPos;
}

class each_bucket_search : public testing::TestWithParam<ladder_step> {};

TEST_P(each_bucket_search, decides_as_the_plain_search_does_at_all_sizes_to_300)
{
    for (const auto& shape : test::all_shapes()) {
        SCOPED_TRACE(shape.name);
        for (usize size = 0; size <= 300; ++size) {
            expect_plain_tokens<1>(GetParam(), shape.make(size, size), 10);
            expect_plain_tokens<2>(GetParam(), shape.make(size, size + 1), 5);
        }
    }
}

TEST_P(each_bucket_search, decides_as_the_plain_search_does_on_large_blocks)
{
    for (const auto& shape : test::all_shapes()) {
        SCOPED_TRACE(shape.name);
        expect_plain_tokens<1>(GetParam(), shape.make(65536, 1), 10);
        expect_plain_tokens<2>(GetParam(), shape.make(65536, 2), 16);
        expect_plain_tokens<1>(GetParam(), shape.make(300001, 3), 16);
    }
}

INSTANTIATE_TEST_SUITE_P(pairs, each_bucket_search, testing::Values(ladder_step{3, 1}));
INSTANTIATE_TEST_SUITE_P(rings, each_bucket_search,
                         testing::Values(ladder_step{4, 1}, ladder_step{4, 2}, ladder_step{4, 3},
                                         ladder_step{4, 4}, ladder_step{4, 6}, ladder_step{4, 8}),
                         [](const auto& test) {
                             return "of_2_to_the_" + std::to_string(test.param.chain_bits);
                         });

TEST(bucket_search, gives_nothing_without_memory_for_its_table)
{
    using recorder = test::token_recorder<1>;
    const test::bytes block(100);
    const block_text text{block.data(), 50};
    constexpr auto search_pairs = search_buckets<pair_table<0>, recorder>;
    constexpr auto search_rings = search_buckets<ring_table, recorder>;
    test::limited_allocator limit;
    limit.refuse_from(1 << 20);
    scratch memory(limit.get());
    EXPECT_FALSE(search_pairs(text, {28, 1}, memory, {}).has_value());
    EXPECT_FALSE(search_rings(text, {28, 2}, memory, {}).has_value());
}

} // namespace
} // namespace quarnex
