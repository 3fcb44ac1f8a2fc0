#include "match/trie_fixture.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::block_trie;
using test::bytes;
using test::bytes_of;
using test::expect_valid_records;
using test::records;

/// The records for the last `key_len` bytes of `block`, after all positions from 1 to the one
/// before them were inserted.
records last_matches(const bytes& block, u32 key_len)
{
    const auto pos = static_cast<u32>(block.size()) - key_len;
    block_trie tree(block);
    tree.insert(1, pos);
    return tree.matches(pos);
}
records last_matches(std::string_view block, u32 key_len)
{
    return last_matches(bytes_of(block), key_len);
}

/// Number of bytes that two positions of a block share, up to its end.
u32 shared(const bytes& block, u32 earlier, u32 pos)
{
    u32 len = 0;
    while (pos + len < block.size() && block[pos + len] == block[earlier + len]) ++len;
    return len;
}

/// Expects the records of the plain trie at each position of a block.  Every `step`th position is
/// inserted without a search.
void expect_plain_records(const bytes& block, const std::string& name, u32 step = 1000)
{
    block_trie tree(block);
    test::plain_trie plain(block);
    for (u32 pos = 1; pos < block.size(); ++pos) {
        if (pos % step == 0) {
            tree.insert(pos);
        } else {
            ASSERT_EQ(tree.matches(pos), plain.matches(pos))
                << name << " of " << block.size() << " bytes, at " << pos;
        }
        plain.insert(pos);
    }
}

// Small cases, with records {bytes, position}

TEST(trie, the_first_position_finds_nothing_and_is_found_by_the_next)
{
    block_trie tree(bytes_of("xaab"));
    EXPECT_EQ(tree.matches(1), records{});
    EXPECT_EQ(tree.matches(2), (records{{0, 1}}));
}

TEST(trie, a_position_never_finds_itself)
{
    block_trie tree(bytes_of("xaaaa"));
    EXPECT_EQ(tree.matches(1), records{});
    EXPECT_EQ(tree.matches(2), (records{{0, 1}}));
    EXPECT_EQ(tree.matches(3), (records{{0, 2}}));
}

TEST(trie, position_0_is_no_match)
{
    EXPECT_EQ(last_matches("abcdabcd", 4), records{});
}

TEST(trie, a_block_of_one_repeated_byte)
{
    // The first path has one byte.  The second position reaches the leaf below it and replaces it,
    // as all following bytes agree, and so does each next one.
    for (const u32 size : {2U, 3U, 10U, 255U, 256U, 257U, 258U, 600U}) {
        const bytes block(size, 'a');
        block_trie tree(block);
        EXPECT_EQ(tree.matches(1), records{});
        for (u32 pos = 2; pos < size; ++pos) {
            // Keys are shorter near the block's end; one of one byte ends after the first path.
            const u32 latest = pos - 1;
            ASSERT_EQ(tree.matches(pos), (records{{0, latest}})) << size << ' ' << pos;
        }
        expect_plain_records(block, "zeros");
    }
}

TEST(trie, a_key_that_ends_inside_a_path_stops_there)
{
    // "abcdef" and "abcdeg" fork after "a" and a path of four bytes.
    EXPECT_EQ(last_matches("xabcdef1abcdeg2abc", 3), (records{{2, 8}}));
    EXPECT_EQ(last_matches("xabcdef1abcdeg2a", 1), (records{{0, 8}}));
}

TEST(trie, two_successive_nodes_with_the_same_last_give_one_record)
{
    EXPECT_EQ(last_matches("xabcdef1abcdeg2abcdeh", 6), (records{{4, 8}}));
}

TEST(trie, nearer_positions_have_shorter_lengths)
{
    //              1     7    12  16
    EXPECT_EQ(last_matches("xabcde1abcd2abc3abcde", 5), (records{{2, 12}, {3, 7}, {4, 1}}));
}

TEST(trie, a_mismatch_at_the_first_byte_of_a_path_gives_no_record)
{
    // After "a" there are "bc", a path of two bytes, and "x"; then "bd" splits the path.
    const bytes block = bytes_of("_abcdef1abcdeg2ax3abd");
    block_trie tree(block);
    tree.insert(1);
    tree.insert(8);
    tree.insert(15);
    EXPECT_EQ(tree.matches(18), (records{{0, 15}, {1, 8}}));
    // In a tree of one path: no record.
    block_trie path(bytes_of("xabcb"));
    path.insert(1);
    EXPECT_EQ(path.matches(4), records{});
}

/// One byte, and keys padded to eight bytes each.
bytes keys(std::initializer_list<std::string_view> list)
{
    bytes block{'_'};
    for (const std::string_view key : list) {
        bytes padded = bytes_of(key);
        padded.resize(8, '.');
        block.insert(block.end(), padded.begin(), padded.end());
    }
    return block;
}

/// Inserts all keys, and returns the records of the last one.  Compares each with the plain trie.
records key_matches(std::initializer_list<std::string_view> list)
{
    const bytes block = keys(list);
    block_trie tree(block);
    test::plain_trie plain(block);
    records found;
    for (u32 pos = 1; pos < block.size(); pos += 8) {
        found = tree.matches(pos);
        EXPECT_EQ(found, plain.matches(pos)) << pos;
        plain.insert(pos);
    }
    return found;
}

TEST(trie, a_path_is_split_at_its_first_byte)
{
    // "abcd" is "a" and a path "bcd"; "axxx" splits that at "b".
    EXPECT_EQ(key_matches({"abcd1", "abcd2", "axxx", "abcd3"}), (records{{0, 17}, {3, 9}}));
    EXPECT_EQ(key_matches({"abcd1", "abcd2", "axxx", "axxx1"}), (records{{1, 17}}));
}

TEST(trie, a_path_is_split_at_its_last_byte)
{
    EXPECT_EQ(key_matches({"abcd1", "abcd2", "abcx", "abcd3"}), (records{{2, 17}, {3, 9}}));
    EXPECT_EQ(key_matches({"abcd1", "abcd2", "abcx", "abcx1"}), (records{{3, 17}}));
}

TEST(trie, a_path_is_split_in_its_middle)
{
    EXPECT_EQ(key_matches({"abcde1", "abcde2", "abxxx", "abcde3"}), (records{{1, 17}, {4, 9}}));
    EXPECT_EQ(key_matches({"abcde1", "abcde2", "abxxx", "abxxx1"}), (records{{2, 17}}));
}

TEST(trie, a_path_of_one_byte_is_split)
{
    // The first path of the trie, and that of "b" after "a".
    EXPECT_EQ(key_matches({"abcd", "bcd", "abcd1"}), (records{{0, 1}}));
    EXPECT_EQ(key_matches({"a1", "ab1", "ab2", "ac", "ab3"}), (records{{0, 25}, {1, 17}}));
}

TEST(trie, the_rest_of_a_split_path_is_read_at_its_new_depth)
{
    // The rest of "bcdefg" is split repeatedly, from the start and from the end.
    EXPECT_EQ(key_matches({"abcdefg1", "abcdefg2", "aX", "abX", "abcX", "abcdX", "abcdeX",
                           "abcdefX", "abcdefg3"}),
              (records{{5, 57}, {6, 9}}));
    EXPECT_EQ(key_matches({"abcdefg1", "abcdefg2", "abcdefX", "abcdeX", "abcdX", "abcX", "abX",
                           "aX", "abcdefg3"}),
              (records{{0, 57}, {1, 49}, {2, 41}, {3, 33}, {4, 25}, {5, 17}, {6, 9}}));
}

TEST(trie, a_leaf_whose_bytes_agree_up_to_the_keys_end_is_replaced_not_split)
{
    // Keys have 256 bytes; those at 1, 301 and 601 are the same.
    const bytes part = test::find_shape("random").make(300, 1);
    const bytes block = test::joined({{'x'}, part, part, part, part});
    block_trie tree(block);
    tree.insert(1);
    EXPECT_EQ(tree.matches(301), (records{{0, 1}}));
    EXPECT_EQ(tree.matches(601), (records{{0, 301}}));
    EXPECT_EQ(tree.matches(901), (records{{0, 601}}));
}

TEST(trie, a_leaf_that_differs_in_the_last_byte_of_a_key_is_split)
{
    // Position 301 agrees in 255 bytes only, and so becomes a separate leaf.
    const bytes part = test::find_shape("random").make(300, 1);
    bytes block = test::joined({{'x'}, part, part, part});
    block[301 + 255] ^= 1;
    block_trie tree(block);
    tree.insert(1);
    EXPECT_EQ(tree.matches(301), (records{{0, 1}}));
    EXPECT_EQ(tree.matches(601), (records{{254, 301}, {255, 1}}));
}

TEST(trie, a_key_that_ends_exactly_at_a_leaf_leaves_the_old_leaf)
{
    // At the end, the key "b" ends right at the leaf below "b".  Whether it was replaced shows only
    // in a second search for the same key: the path's last is new, the leaf is not.
    const bytes block = bytes_of("_bcb");
    block_trie tree(block);
    tree.insert(1);
    EXPECT_EQ(tree.matches(3), (records{{0, 1}}));
    EXPECT_EQ(tree.matches(3), (records{{0, 3}, {0, 1}}));
}

TEST(trie, nodes_store_the_latest_position_inserted_through_them)
{
    block_trie tree(bytes_of("_ab1ab2ac3ab"));
    tree.insert(1);
    tree.insert(4);
    EXPECT_EQ(tree.matches(7), (records{{0, 4}}));
    EXPECT_EQ(tree.matches(10), (records{{0, 7}, {1, 4}}));
}

// Kinds of nodes

/// One byte, then "a" with each of some bytes, each pair followed by two bytes that differ.
bytes pairs_of(const std::vector<u8>& seconds)
{
    bytes block{'_'};
    for (usize i = 0; i < seconds.size(); ++i) {
        block.insert(block.end(), {'a', seconds[i], static_cast<u8>(i), static_cast<u8>(i >> 8)});
    }
    return block;
}

/// Inserts all pairs, then searches for each of them again.
void expect_all_pairs(std::vector<u8> seconds)
{
    const auto children = static_cast<u32>(seconds.size());
    const std::vector<u8> again = seconds;
    seconds.insert(seconds.end(), again.begin(), again.end());
    const bytes block = pairs_of(seconds);
    block_trie tree(block);
    test::plain_trie plain(block);
    for (u32 i = 0; i < seconds.size(); ++i) {
        const u32 pos = 1 + 4 * i;
        const records found = tree.matches(pos);
        ASSERT_EQ(found, plain.matches(pos)) << children << " children, key " << i;
        plain.insert(pos);
        if (i < children) continue;
        ASSERT_EQ(found.back().pos, pos - 4 * children);
        ASSERT_GE(found.back().len, 1U);
    }
}

std::vector<u8> ascending(u32 count)
{
    std::vector<u8> values(count);
    for (u32 i = 0; i < count; ++i) values[i] = static_cast<u8>(i);
    return values;
}

TEST(trie, a_key_byte_below_between_and_above_the_entries_of_a_list)
{
    expect_all_pairs({50, 20});
    expect_all_pairs({20, 50});
    expect_all_pairs({20, 50, 10});
    expect_all_pairs({20, 50, 30});
    expect_all_pairs({20, 50, 60});
    expect_all_pairs({20, 50, 0, 255, 19, 21, 49, 51});
}

TEST(trie, lists_of_every_size_in_every_order)
{
    test::random_source random(1);
    for (u32 count = 2; count <= 34; ++count) {
        std::vector<u8> values = ascending(count);
        expect_all_pairs(values);
        std::reverse(values.begin(), values.end());
        expect_all_pairs(values);
        for (u32 i = 0; i < count; ++i)
            values[i] = static_cast<u8>(255 - i * 7); // far apart, and the highest bytes
        expect_all_pairs(values);
        for (u32 i = count; i > 1; --i) std::swap(values[i - 1], values[random.below(i)]);
        expect_all_pairs(values);
    }
}

TEST(trie, the_33rd_child_turns_a_list_into_a_bitmap_for_any_key_byte)
{
    for (u32 last = 0; last < 256; ++last) {
        std::vector<u8> values;
        for (u32 i = 0; i < 32; ++i) values.push_back(static_cast<u8>(i * 8 + (i * 8 == last)));
        values.push_back(static_cast<u8>(last));
        expect_all_pairs(values);
    }
}

TEST(trie, key_bytes_0_and_255_in_a_bitmap)
{
    // Word 0 is in the prefix counts of all others, word 7 in none.
    for (const bool zero_first : {false, true}) {
        std::vector<u8> values;
        for (u32 i = 0; i < 33; ++i) values.push_back(static_cast<u8>(100 + i));
        values.push_back(zero_first ? u8{0} : u8{255});
        values.push_back(zero_first ? u8{255} : u8{0});
        values.insert(values.end(), {31, 32, 224, 223, 63, 64});
        expect_all_pairs(values);
    }
    std::vector<u8> both = ascending(32);
    both.push_back(255);
    expect_all_pairs(both);
}

TEST(trie, bitmaps_grow_in_every_order)
{
    test::random_source random(2);
    std::vector<u8> values = ascending(246);
    for (int round = 0; round < 8; ++round) {
        for (u32 i = 246; i > 1; --i) std::swap(values[i - 1], values[random.below(i)]);
        expect_all_pairs(values);
    }
    for (u32 i = 0; i < 246; ++i) values[i] = static_cast<u8>(255 - i);
    expect_all_pairs(values);
}

TEST(trie, the_247th_child_turns_a_bitmap_into_a_full_node_for_any_key_byte)
{
    for (const u32 last : {0U, 1U, 31U, 32U, 128U, 246U, 254U, 255U}) {
        std::vector<u8> values;
        for (u32 byte = 0; values.size() < 246; ++byte)
            if (byte != last) values.push_back(static_cast<u8>(byte));
        values.push_back(static_cast<u8>(last));
        expect_all_pairs(values);
    }
}

TEST(trie, a_full_node_takes_all_256_children)
{
    std::vector<u8> values = ascending(256);
    expect_all_pairs(values);
    std::reverse(values.begin(), values.end());
    expect_all_pairs(values);
}

TEST(trie, a_new_child_of_a_full_node_leaves_its_last_unchanged)
{
    std::vector<u8> seconds = ascending(249);
    seconds.push_back(5);
    seconds.push_back(250);
    const bytes block = pairs_of(seconds);
    const auto pos_of = [](u32 pair) { return 1 + 4 * pair; };
    block_trie tree(block);
    for (u32 pair = 0; pair < 247; ++pair) tree.insert(pos_of(pair));
    // The 247th made it a full node, and is its last.  The next two are not, but are the last of
    // the path "a" before it.
    EXPECT_EQ(tree.matches(pos_of(247)), (records{{0, pos_of(246)}}));
    EXPECT_EQ(tree.matches(pos_of(248)), (records{{0, pos_of(247)}, {0, pos_of(246)}}));
    EXPECT_EQ(tree.matches(pos_of(249)),
              (records{{0, pos_of(248)}, {0, pos_of(246)}, {1, pos_of(5)}}));
    // An insertion through an existing child updates it.
    EXPECT_EQ(tree.matches(pos_of(250)), (records{{0, pos_of(249)}}));
}

// Any blocks

TEST(trie, equals_the_plain_trie_for_all_shapes_and_sizes_up_to_400)
{
    for (const auto& shape : test::all_shapes())
        for (u32 size = 0; size <= 400; size += 1 + size / 100)
            ASSERT_NO_FATAL_FAILURE(expect_plain_records(shape.make(size, size), shape.name, 7));
}

TEST(trie, equals_the_plain_trie_for_larger_blocks_of_all_shapes)
{
    for (const auto& shape : test::all_shapes())
        ASSERT_NO_FATAL_FAILURE(expect_plain_records(shape.make(20000, 5), shape.name, 11));
}

TEST(trie, equals_the_plain_trie_for_alphabets_of_all_sizes)
{
    for (u32 symbols = 1; symbols <= 256; symbols += 1 + symbols / 8) {
        for (const u32 size : {30U, 300U, 3000U}) {
            test::random_source random(symbols + size);
            bytes block(size);
            for (u8& byte : block) byte = static_cast<u8>(255 - random.below(symbols));
            ASSERT_NO_FATAL_FAILURE(expect_plain_records(block, "few symbols", 13));
        }
    }
}

TEST(trie, equals_the_plain_trie_for_thousands_of_small_blocks)
{
    test::random_source random(3);
    for (u32 round = 0; round < 6000; ++round) {
        bytes block(1 + random.below(60));
        const u32 symbols = 1 + random.below(4);
        for (u8& byte : block) byte = static_cast<u8>(random.below(symbols));
        ASSERT_NO_FATAL_FAILURE(expect_plain_records(block, "few symbols", 2 + random.below(9)));
    }
}

/// Inserts batches of up to `longest` positions, and expects the records of the plain trie at the
/// positions between them.
void expect_plain_batches(const bytes& block, u32 longest, const std::string& name)
{
    test::random_source random(longest);
    block_trie tree(block);
    test::plain_trie plain(block);
    const auto size = static_cast<u32>(block.size());
    for (u32 pos = 1; pos < size;) {
        const u32 count = std::min(random.below(longest + 1), size - pos);
        tree.insert_batch(pos, count);
        for (const u32 end = pos + count; pos != end; ++pos) plain.insert(pos);
        for (const u32 end = std::min(pos + 1 + random.below(4), size); pos < end; ++pos) {
            ASSERT_EQ(tree.matches(pos), plain.matches(pos)) << name << ", at " << pos;
            plain.insert(pos);
        }
    }
}

TEST(trie, a_batch_of_insertions_equals_single_ones)
{
    for (const auto& shape : test::all_shapes())
        for (const u32 longest : {2U, 9U, 40U, 1000U})
            ASSERT_NO_FATAL_FAILURE(
                expect_plain_batches(shape.make(12000, 8), longest, shape.name));
    test::random_source random(4);
    for (u32 round = 0; round < 3000; ++round) {
        bytes block(1 + random.below(120));
        const u32 symbols = 1 + random.below(4);
        for (u8& byte : block) byte = static_cast<u8>(random.below(symbols));
        ASSERT_NO_FATAL_FAILURE(expect_plain_batches(block, 1 + random.below(30), "few symbols"));
    }
}

TEST(trie, equals_the_plain_trie_for_repetitions_with_errors)
{
    // Long common prefixes, most of them longer than a key.
    test::random_source random(4);
    for (const u32 period : {1U, 2U, 100U, 255U, 256U, 257U, 300U}) {
        bytes block = test::find_shape("random").make(period, period);
        while (block.size() < 4000) {
            const u8 byte = block[block.size() - period];
            block.push_back(random.below(150) == 0 ? static_cast<u8>(byte + 1) : byte);
        }
        ASSERT_NO_FATAL_FAILURE(expect_plain_records(block, "errors", 17));
    }
}

/// The most bytes, up to trie_depth, that an earlier position shares with `pos`.
u32 longest_shared(const bytes& block, u32 pos)
{
    u32 longest = 0;
    for (u32 earlier = 1; earlier < pos; ++earlier)
        longest = std::max(longest, shared(block, earlier, pos));
    return std::min(longest, trie_depth);
}

TEST(trie, records_are_valid_and_the_last_has_the_longest_match)
{
    for (const auto& shape : test::all_shapes()) {
        const bytes block = shape.make(1500, 6);
        block_trie tree(block);
        for (u32 pos = 1; pos < block.size(); ++pos) {
            const records found = tree.matches(pos);
            ASSERT_NO_FATAL_FAILURE(expect_valid_records(found, block, pos));
            const u32 reached =
                found.empty() ? 0 : std::min(shared(block, found.back().pos, pos), trie_depth);
            ASSERT_EQ(reached, longest_shared(block, pos)) << shape.name << ' ' << pos;
        }
    }
}

TEST(trie, each_record_is_the_nearest_with_its_length_plus_one_byte)
{
    // Holds where no node is full and no key is cut by the block's end.  (A leaf at depth 256 is
    // the first position with its bytes.)
    for (const char* name : {"text", "two_symbols", "fibonacci", "runs"}) {
        const bytes block = test::find_shape(name).make(1500, 7);
        block_trie tree(block);
        for (u32 pos = 1; pos + trie_depth <= block.size(); ++pos) {
            for (const auto& record : tree.matches(pos)) {
                if (record.len + 1 == trie_depth) continue;
                u32 nearest = pos - 1;
                while (nearest != 0 && shared(block, nearest, pos) <= record.len) --nearest;
                ASSERT_EQ(record.pos, nearest) << name << ' ' << pos;
            }
        }
    }
}

} // namespace
} // namespace quarnex
