#include "match/bucket_search.h"

#include "match/near_blocks.h"
#include "support/limited_allocator.h"
#include "support/shapes.h"
#include "support/token_recorder.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using namespace std::string_view_literals;
using test::bytes;
using test::bytes_of;
using test::far_and_near_block;
using test::literals;
using test::plain_token;
using test::spelled_out;
using test::tokens_of;

// Tables

constexpr i32 table_hash_bits = 10;

/// The inverse of hash4's factor modulo 2^32, by Newton's iteration.
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
    for (typename Table::candidate_scan scan(table, table.buckets().at(text, pos)); !scan.done();
         scan.next())
        found.push_back(scan.cand());
    return found;
}

using positions = std::vector<u32>;

TEST(pair_table, starts_full_of_its_start_position)
{
    const hashed_block text({5, 1023});
    EXPECT_EQ(candidates(small_table<pair_table<0>>(), text, 0), (positions{0, 0}));
    EXPECT_EQ(candidates(small_table<pair_table<1>>(), text, 4), (positions{1, 1}));
}

TEST(pair_table, an_insertion_moves_the_first_entry_to_the_second)
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

TEST(pair_table, the_second_entry_is_the_first_of_the_next_bucket)
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

TEST(pair_table, entries_of_earlier_blocks_count_as_the_start_position)
{
    const hashed_block block({5, 5, 5, 5});
    const block_text text = block;
    scratch memory(system_allocator);
    using rising = pair_table<1, table_start::rising>;
    const search_bits bits{table_hash_bits, 1};
    {
        rising table(bits, text.size, memory);
        insert(table, text, 4);
        insert(table, text, 8);
        EXPECT_EQ(candidates(table, text, 0), (positions{8, 4}));
        table.buckets().end_block(text);
    }
    rising table(bits, text.size, memory);
    EXPECT_EQ(candidates(table, text, 0), (positions{1, 1}));
    insert(table, text, 12);
    EXPECT_EQ(candidates(table, text, 0), (positions{12, 1}));
}

TEST(search_pairs, finds_the_same_tokens_in_a_table_with_entries_of_earlier_blocks)
{
    const auto search = search_pairs<0, test::token_recorder<1>>;
    for (const u32 highest : {0U, 1000U, UINT32_MAX - 5000}) {
        scratch used(system_allocator);
        const search_bits bits{12, 1};
        table_memory(used, (usize{1} << 12) + 1, 0, table_start::rising).mark_highest(highest);
        for (const test::shape& shape : test::all_shapes()) {
            for (const usize size : {3U, 700U, 3000U}) {
                const bytes block = shape.make(size, size);
                EXPECT_EQ(tokens_of<1>(search, block, bits, used),
                          tokens_of<1>(search, block, bits))
                    << shape.name << " of " << size << " bytes after " << highest;
            }
        }
    }
}

TEST(search_pairs, entries_that_would_exceed_32_bits_are_cleared_before)
{
    const search_bits bits{12, 1};
    const bytes block = test::find_shape("text").make(1000, 3);
    for (u32 below = 0; below < 20; ++below) {
        scratch used(system_allocator);
        const u32 highest = UINT32_MAX - static_cast<u32>(block.size()) - below;
        {
            table_memory left(used, (usize{1} << 12) + 1, 0, table_start::rising);
            std::fill_n(left.get(), (usize{1} << 12) + 1, highest);
            left.mark_highest(highest);
        }
        const auto search = search_pairs<0, test::token_recorder<1>>;
        const auto expected = tokens_of<1>(search, block, bits);
        EXPECT_EQ(tokens_of<1>(search, block, bits, used), expected) << below;
        EXPECT_EQ(tokens_of<1>(search, block, bits, used), expected) << below << ", second block";
    }
}

TEST(search_pairs, a_long_block_after_a_short_one_starts_with_zeros)
{
    const auto search = search_pairs<0, test::token_recorder<1>>;
    scratch used(system_allocator);
    const search_bits bits{12, 1};
    const bytes short_block = test::find_shape("text").make(max_rising_block, 1);
    const bytes long_block = test::find_shape("text").make(max_rising_block + 1, 2);
    tokens_of<1>(search, short_block, bits, used);
    EXPECT_EQ(tokens_of<1>(search, long_block, bits, used), tokens_of<1>(search, long_block, bits));
    EXPECT_EQ(tokens_of<1>(search, short_block, bits, used),
              tokens_of<1>(search, short_block, bits));
}

TEST(pair_table, the_highest_hash_value_has_a_second_entry_too)
{
    const hashed_block text({0, 1023, 1023});
    auto table = small_table<pair_table<0>>();
    insert(table, text, 4);
    insert(table, text, 8);
    EXPECT_EQ(candidates(table, text, 4), (positions{8, 4}));
}

TEST(pair_table, inserts_the_last_position_of_a_match_and_then_the_one_before)
{
    const bytes zeros(40); // all positions have the same hash value
    const block_text text{zeros.data(), 20};
    auto table = small_table<pair_table<0>>();
    table.insert_end(text, 12, 4);
    EXPECT_EQ(candidates(table, text, 0), (positions{10, 11}));
}

TEST(ring_table, the_first_entry_of_an_empty_bucket_is_a_candidate)
{
    // An empty entry reads as position 0.
    const hashed_block text({5});
    EXPECT_EQ(candidates(small_table<ring_table>(2), text, 0), (positions{0}));
}

TEST(ring_table, the_first_insertion_goes_to_the_second_entry)
{
    const hashed_block text({0, 5, 5, 5, 5, 5});
    auto table = small_table<ring_table>(2);
    insert(table, text, 4);
    EXPECT_EQ(candidates(table, text, 4), (positions{0, 4}));
    insert(table, text, 8);
    EXPECT_EQ(candidates(table, text, 4), (positions{0, 4, 8}));
    insert(table, text, 12);
    EXPECT_EQ(candidates(table, text, 4), (positions{0, 4, 8, 12}));
    insert(table, text, 16); // the first entry is filled last
    EXPECT_EQ(candidates(table, text, 4), (positions{16, 4, 8, 12}));
    insert(table, text, 20);
    EXPECT_EQ(candidates(table, text, 4), (positions{16, 20, 8, 12}));
}

TEST(ring_table, a_ring_of_256_uses_all_bits_of_the_cursor)
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

TEST(ring_table, an_entry_that_is_all_zero_ends_the_scan)
{
    // Bucket 7 is entries 7 to 10; its first insertion fills entry 8.  Bucket 5 contains that
    // too, but entry 6 is empty.
    const hashed_block text({7, 5, 7});
    auto table = small_table<ring_table>(2);
    insert(table, text, 8);
    EXPECT_EQ(candidates(table, text, 4), (positions{0}));
}

TEST(ring_table, an_entry_with_a_cursor_but_without_a_position_is_a_candidate_at_position_0)
{
    // Entry 7 holds only the cursor of its bucket; the scan of bucket 6 continues to entry 8.
    const hashed_block text({7, 6, 7});
    auto table = small_table<ring_table>(2);
    insert(table, text, 8);
    EXPECT_EQ(candidates(table, text, 4), (positions{0, 0, 8}));
}

TEST(ring_table, an_entry_keeps_its_cursor_when_another_bucket_writes_its_position)
{
    const hashed_block text({0, 6, 5, 6});
    auto table = small_table<ring_table>(2);
    insert(table, text, 4); // entry 7; the cursor of bucket 6 is 1
    insert(table, text, 8); // entry 6, for bucket 5
    EXPECT_EQ(candidates(table, text, 4), (positions{8, 4}));
    insert(table, text, 12); // cursor 2: entry 8.  With a lost cursor it would be entry 7 again.
    EXPECT_EQ(candidates(table, text, 4), (positions{8, 4, 12}));
    EXPECT_EQ(candidates(table, text, 8), (positions{0, 8, 4, 12}));
}

TEST(ring_table, the_ring_of_the_highest_hash_value_has_all_entries)
{
    const hashed_block text(std::vector<u32>(5, 1023));
    auto table = small_table<ring_table>(2);
    for (u32 pos = 4; pos <= 16; pos += 4) insert(table, text, pos);
    EXPECT_EQ(candidates(table, text, 0), (positions{16, 4, 8, 12}));
}

TEST(ring_table, inserts_the_last_two_positions_of_a_match_but_one_of_a_match_of_4)
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
    insert(table, text, past); // reads as an empty entry, which ends the scan
    EXPECT_EQ(candidates(table, text, 0), (positions{0, past - 1, 5}));
}

// Searches

template <u32 FirstPos>
constexpr auto search_pairs =
    search_buckets<pair_table<FirstPos - 1>, test::token_recorder<FirstPos>>;

template <u32 FirstPos>
constexpr auto search_rings = search_buckets<ring_table, test::token_recorder<FirstPos>>;

/// Enough hash bits for all words of the tests below to have entries of their own.
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

TEST(pair_search, the_initial_position_is_a_candidate)
{
    // Positions before the first one searched are never inserted.
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

TEST(ring_search, a_match_can_start_in_the_last_four_bytes)
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

TEST(ring_search, a_candidate_one_byte_shorter_wins_if_it_is_nearer_by_more_than_eight_times)
{
    // At 48 five bytes match at distance 48 and four at distance 5: 48 >> 3 = 6.
    EXPECT_EQ(ring_tokens(far_and_near_block(48)),
              spelled_out({literals(42), {4, 43}, literals(1), {4, 5}, literals(2)}));
    // 47 >> 3 = 5.
    EXPECT_EQ(ring_tokens(far_and_near_block(47)),
              spelled_out({literals(41), {4, 42}, literals(1), {5, 47}, literals(1)}));
}

TEST(bucket_search, a_longer_match_one_ahead_makes_a_literal)
{
    // At 13 "abcd" gives four bytes at distance 13; one later "bcdefgh" gives seven.
    expect_both(bytes_of("abcdXbcdefghYabcdefghZ"), {literals(13), {7, 9}, literals(1)});
}

TEST(bucket_search, inserts_the_second_and_the_third_position_of_a_match)
{
    // The match at 8 inserts 9, "bcde", and 10, "cdef"; at 17 each of them is nearer than the
    // first.
    expect_both(bytes_of("abcdefghabcdefgh-bcdefX"),
                {literals(7), {8, 8}, literals(1), {5, 8}, literals(1)});
    expect_both(bytes_of("abcdefghabcdefgh-cdefX"),
                {literals(7), {8, 8}, literals(1), {4, 7}, literals(1)});
}

TEST(bucket_search, a_literal_for_a_match_two_ahead_is_one_literal)
{
    // The match of "abcdefgh" at 21 inserts its last two positions, 27 and 28, but not the "f"
    // before them.  At 38, "XfghIJ...", "Xfgh" gives four bytes.  At 39 the only candidate for
    // "fghI" is 15, four bytes at distance 24, which is not better; at 40 "ghIJKLMNOP" matches 27,
    // ten bytes that do not extend back to 38: a literal.  At 39 they extend back: eleven bytes.
    expect_both(bytes_of("abcdefgh1Xfgh@2fghI#3abcdefghIJKLMNOP4XfghIJKLMNOP5"),
                {literals(20), {8, 21}, literals(10), {11, 13}, literals(1)});
}

TEST(bucket_search, a_match_two_ahead_replaces_the_match_if_it_extends_back)
{
    // The match of "abcdefgh" at 9 inserts its last two positions, 15 and 16, but not 13 and 14.
    // At 26 "efgh" finds 4, four bytes; at 27 "fghI" finds nothing; at 28 "ghIJKLMNOP" finds 15,
    // and both have "ef" before them.
    expect_both(bytes_of("abcdefgh1abcdefghIJKLMNOP2efghIJKLMNOP3"),
                {literals(8), {8, 9}, literals(9), {12, 13}, literals(1)});
}

TEST(ring_search, a_twice_replaced_match_extends_5_bytes_past_the_end)
{
    // At 2 there are "z" and nine zeros; the last byte, at 15, is "z": four bytes from 2.  The next
    // word, past the block, is zero: it finds 3, and with the "z" before it five bytes.  The one
    // after it finds 4, and with "z" and a zero before it six, which beats five.
    const bytes block = bytes_of("abz\0\0\0\0\0\0\0\0\0defz"sv);
    EXPECT_EQ(ring_tokens(block), spelled_out({literals(3), {8, 1}, literals(3), {6, 13}}));
}

TEST(ring_search, a_match_in_the_last_position_extends_3_bytes_past_the_end)
{
    // "z" and three zeros are at 3; no four zeros are anywhere.
    EXPECT_EQ(ring_tokens(bytes_of("abcz\0\0\0defz"sv)), spelled_out({literals(9), {4, 7}}));
}

TEST(bucket_search, the_position_itself_is_not_extended_back)
{
    // At 2 the only candidate is 0, at distance 2.  At 3 there is 2, with a zero before it too: the
    // match at distance 1 would be as long and nearer.
    EXPECT_EQ(tokens_of<2>(search_rings<2>, bytes(1000), roomy), spelled_out({{998, 2}}));
    constexpr auto search = search_buckets<pair_table<0>, test::token_recorder<2>>;
    EXPECT_EQ(tokens_of<2>(search, bytes(1000), roomy), spelled_out({{998, 2}}));
}

TEST(pair_search, a_run_is_found_from_position_1_if_that_is_the_initial_one)
{
    EXPECT_EQ(tokens_of<2>(search_pairs<2>, bytes(1000), roomy), spelled_out({{998, 1}}));
}

TEST(ring_search, a_candidate_past_16_mib_is_used_at_its_position_modulo_16_mib)
{
    // The needle at 2^24 + 200 was inserted at 100 and at 2^24 + 100, which reads as 100 too.
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

TEST_P(each_bucket_search, equals_the_plain_search_for_all_sizes_up_to_300)
{
    for (const auto& shape : test::all_shapes()) {
        SCOPED_TRACE(shape.name);
        for (usize size = 0; size <= 300; ++size) {
            expect_plain_tokens<1>(GetParam(), shape.make(size, size), 10);
            expect_plain_tokens<2>(GetParam(), shape.make(size, size + 1), 5);
        }
    }
}

TEST_P(each_bucket_search, equals_the_plain_search_for_large_blocks)
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

TEST(bucket_search, returns_nothing_without_memory_for_its_table)
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
