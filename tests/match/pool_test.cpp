#include "match/pool.h"

#include "support/shapes.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <set>

namespace quarnex {
namespace {

constexpr u64 mib = 1 << 20;
constexpr u32 page_header = 32;

/// Offset of a block from the pool's start, in bytes.
usize offset_of(pool_ref block)
{
    return usize{block} * 4;
}
usize page_of(pool_ref block)
{
    return offset_of(block) / pool::page_size;
}
usize chunk_of(pool_ref block)
{
    return offset_of(block) / pool::chunk_size;
}

/// Size of the block for a request.
u32 rounded(u32 size)
{
    if (size > pool::small_limit) return pool::large_limit;
    return std::max((size + 7) / 8 * 8, 8U);
}
u32 blocks_in_page(u32 size)
{
    return (pool::page_size - page_header) / rounded(size);
}

std::vector<pool_ref> alloc_many(pool& memory, u32 size, usize count)
{
    std::vector<pool_ref> blocks(count);
    for (pool_ref& block : blocks) block = memory.alloc(size);
    return blocks;
}

/// Fills `count` whole pages with large blocks.
std::vector<std::vector<pool_ref>> alloc_pages(pool& memory, usize count)
{
    std::vector<std::vector<pool_ref>> pages(count);
    for (auto& page : pages) page = alloc_many(memory, pool::large_limit, 3);
    return pages;
}

void free_all(pool& memory, std::vector<pool_ref>& blocks)
{
    for (const pool_ref block : blocks) memory.free(block);
    blocks.clear();
}

// Sizes

TEST(pool, requests_of_all_sizes_get_blocks_of_their_size_class)
{
    // A page has as many as fit, next to each other.
    for (u32 size = 1; size <= pool::large_limit; ++size) {
        pool memory(system_allocator, mib);
        const auto blocks = alloc_many(memory, size, blocks_in_page(size));
        for (usize i = 0; i < blocks.size(); ++i)
            ASSERT_EQ(offset_of(blocks[i]), page_header + i * rounded(size)) << size;
        EXPECT_EQ(page_of(memory.alloc(size)), 1U) << size;
    }
}

TEST(pool, one_byte_more_than_a_block_size_is_of_the_next_size_class)
{
    for (u32 size = pool::size_step; size <= pool::small_limit; size += pool::size_step) {
        pool memory(system_allocator, mib);
        const pool_ref fits = memory.alloc(size);
        EXPECT_NE(page_of(memory.alloc(size + 1)), page_of(fits)) << size;
        EXPECT_EQ(page_of(memory.alloc(size - 7)), page_of(fits)) << size;
    }
}

TEST(pool, 512_bytes_are_of_the_last_small_class_and_513_a_large_block)
{
    pool memory(system_allocator, mib);
    const auto small = alloc_many(memory, 512, 2);
    EXPECT_EQ(offset_of(small[1]) - offset_of(small[0]), 512U);
    const auto large = alloc_many(memory, 513, 2);
    EXPECT_EQ(offset_of(large[1]) - offset_of(large[0]), 1352U);
    EXPECT_EQ(page_of(memory.alloc(1352)), page_of(large[0]));
}

TEST(pool, a_request_of_0_is_like_one_of_1)
{
    pool memory(system_allocator, mib);
    const pool_ref block = memory.alloc(0);
    EXPECT_NE(block, no_block);
    EXPECT_EQ(offset_of(memory.alloc(1)), offset_of(block) + 8);
}

TEST(pool, a_request_above_large_limit_fails)
{
    pool memory(system_allocator, mib);
    for (const u32 size : {1353U, 4096U, 1U << 20, UINT32_MAX})
        EXPECT_EQ(memory.alloc(size), no_block) << size;
    EXPECT_EQ(memory.chunk_count(), 0U);
    const pool_ref block = memory.alloc(40);
    EXPECT_EQ(memory.realloc(block, 1353), no_block);
    EXPECT_EQ(memory.realloc(block, 40), block);
}

TEST(pool, freeing_no_block_does_nothing)
{
    pool memory(system_allocator, mib);
    memory.free(no_block);
    EXPECT_EQ(memory.chunk_count(), 0U);
}

// Growing and shrinking

TEST(pool, realloc_of_no_block_is_alloc)
{
    pool memory(system_allocator, mib);
    const pool_ref block = memory.realloc(no_block, 24);
    EXPECT_EQ(memory.alloc(24), block + 24 / 4);
}

TEST(pool, realloc_of_16_bytes_to_13_stays_and_to_12_moves_within_its_class)
{
    pool memory(system_allocator, mib);
    const pool_ref block = memory.alloc(16);
    EXPECT_EQ(memory.realloc(block, 13), block);
    const pool_ref moved = memory.realloc(block, 12);
    EXPECT_NE(moved, block);
    EXPECT_EQ(page_of(moved), page_of(block));
    EXPECT_EQ(memory.alloc(16), block); // it was freed
}

TEST(pool, a_small_block_stays_while_more_than_three_quarters_of_it_are_used)
{
    for (u32 size = pool::size_step; size <= pool::small_limit; size += pool::size_step) {
        for (u32 wanted = 1; wanted <= size; ++wanted) {
            pool memory(system_allocator, mib);
            const pool_ref block = memory.alloc(size);
            const bool stays = 4 * wanted > 3 * size;
            ASSERT_EQ(memory.realloc(block, wanted) == block, stays) << size << " to " << wanted;
        }
    }
}

TEST(pool, shrinking_below_three_quarters_moves_to_a_smaller_class)
{
    pool memory(system_allocator, mib);
    const pool_ref other = memory.alloc(100);
    const pool_ref block = memory.alloc(400);
    std::memset(memory.at(block), 7, 400);
    const pool_ref moved = memory.realloc(block, 100);
    EXPECT_EQ(page_of(moved), page_of(other));
    EXPECT_TRUE(std::all_of(memory.at(moved), memory.at(moved) + 100, [](u8 x) { return x == 7; }));
}

TEST(pool, growing_beyond_the_block_moves_and_keeps_what_it_holds)
{
    pool memory(system_allocator, mib);
    for (u32 size = pool::size_step; size <= pool::small_limit; size += pool::size_step) {
        const pool_ref block = memory.alloc(size);
        for (u32 i = 0; i < size; ++i) memory.at(block)[i] = static_cast<u8>(i);
        const pool_ref grown = memory.realloc(block, size + 1);
        ASSERT_NE(grown, block);
        for (u32 i = 0; i < size; ++i) ASSERT_EQ(memory.at(grown)[i], static_cast<u8>(i)) << size;
        EXPECT_EQ(memory.alloc(size), block);
    }
}

TEST(pool, a_large_block_never_moves)
{
    pool memory(system_allocator, mib);
    const pool_ref block = memory.alloc(600);
    for (const u32 size : {1352U, 513U, 512U, 10U, 0U, 1352U})
        EXPECT_EQ(memory.realloc(block, size), block) << size;
}

// Pages

TEST(pool, blocks_freed_last_are_reused_first_and_before_unused_ones)
{
    pool memory(system_allocator, mib);
    const auto blocks = alloc_many(memory, 64, 10);
    for (const usize i : {2U, 7U, 5U}) memory.free(blocks[i]);
    const auto next = alloc_many(memory, 64, 5);
    // One unused block is on the free list already, before the freed ones were added.
    EXPECT_EQ(std::vector(next.begin(), next.begin() + 3),
              (std::vector{blocks[5], blocks[7], blocks[2]}));
    EXPECT_EQ(offset_of(next[3]), offset_of(blocks[9]) + 64);
    EXPECT_EQ(offset_of(next[4]), offset_of(blocks[9]) + 128);
}

TEST(pool, a_full_page_is_used_again_after_a_block_is_freed)
{
    pool memory(system_allocator, mib);
    const auto first = alloc_many(memory, 512, 7);
    const auto second = alloc_many(memory, 512, 7);
    EXPECT_EQ(page_of(second[0]), 1U);
    memory.free(first[3]);
    EXPECT_EQ(memory.alloc(512), first[3]);
    EXPECT_EQ(page_of(memory.alloc(512)), 2U);
}

TEST(pool, the_page_that_got_room_last_is_used_first)
{
    pool memory(system_allocator, mib);
    const auto blocks = alloc_many(memory, 512, 28); // four pages
    for (const usize page : {2U, 0U, 3U}) memory.free(blocks[page * 7]);
    EXPECT_EQ(memory.alloc(512), blocks[21]);
    EXPECT_EQ(memory.alloc(512), blocks[0]);
    EXPECT_EQ(memory.alloc(512), blocks[14]);
}

TEST(pool, a_page_in_the_middle_of_its_bin_can_become_free)
{
    pool memory(system_allocator, mib);
    const auto blocks = alloc_many(memory, 512, 28);
    for (const usize page : {2U, 0U, 3U}) memory.free(blocks[page * 7]);
    for (usize i = 1; i < 7; ++i) memory.free(blocks[i]);
    EXPECT_EQ(memory.alloc(512), blocks[21]);
    EXPECT_EQ(memory.alloc(512), blocks[14]);
    EXPECT_EQ(page_of(memory.alloc(512)), 0U);
}

TEST(pool, a_page_reused_for_its_size_class_keeps_its_free_list_and_bump)
{
    pool memory(system_allocator, mib);
    const pool_ref other = memory.alloc(8); // keeps the chunk
    const auto blocks = alloc_many(memory, 200, 4);
    for (const usize i : {1U, 3U, 0U, 2U}) memory.free(blocks[i]);
    const auto again = alloc_many(memory, 200, 6);
    EXPECT_EQ(std::vector(again.begin(), again.begin() + 4),
              (std::vector{blocks[2], blocks[0], blocks[3], blocks[1]}));
    EXPECT_EQ(offset_of(again[4]), offset_of(blocks[3]) + 200);
    EXPECT_EQ(offset_of(again[5]), offset_of(blocks[3]) + 400);
    EXPECT_NE(page_of(other), page_of(again[0]));
}

TEST(pool, a_reused_page_without_unused_blocks_gives_all_its_blocks)
{
    pool memory(system_allocator, mib);
    const pool_ref other = memory.alloc(8);
    auto blocks = alloc_many(memory, 200, blocks_in_page(200));
    const std::set<pool_ref> all(blocks.begin(), blocks.end());
    free_all(memory, blocks);
    const auto again = alloc_many(memory, 200, all.size());
    EXPECT_EQ(std::set(again.begin(), again.end()), all);
    EXPECT_NE(page_of(memory.alloc(200)), page_of(again[0]));
    EXPECT_NE(other, no_block);
}

TEST(pool, a_page_reused_for_another_size_class_is_formatted_again)
{
    pool memory(system_allocator, mib);
    const pool_ref other = memory.alloc(8);
    auto blocks = alloc_many(memory, 200, 4);
    const usize page = page_of(blocks[0]);
    free_all(memory, blocks);
    const auto anew = alloc_many(memory, 104, blocks_in_page(104));
    for (usize i = 0; i < anew.size(); ++i)
        EXPECT_EQ(offset_of(anew[i]), page * pool::page_size + page_header + i * 104);
    EXPECT_NE(other, no_block);
}

TEST(pool, a_freed_page_is_reused_before_an_unused_one)
{
    pool memory(system_allocator, mib);
    auto pages = alloc_pages(memory, 5);
    free_all(memory, pages[3]);
    free_all(memory, pages[1]);
    EXPECT_EQ(page_of(memory.alloc(8)), 1U); // the last one freed first
    EXPECT_EQ(page_of(memory.alloc(16)), 3U);
    EXPECT_EQ(page_of(memory.alloc(24)), 5U);
}

// Chunks

constexpr usize pages_in_chunk = pool::chunk_size / pool::page_size;

TEST(pool, freeing_the_last_block_of_a_chunk_frees_the_chunk_for_reuse)
{
    pool memory(system_allocator, 4 * mib);
    EXPECT_EQ(memory.chunk_count(), 0U);
    auto pages = alloc_pages(memory, 2 * pages_in_chunk + 1);
    EXPECT_EQ(memory.chunk_count(), 3U);
    std::memset(memory.at(pages[300][0]), 7, 1352);
    for (usize page = pages_in_chunk; page < 2 * pages_in_chunk; ++page)
        free_all(memory, pages[page]);
    EXPECT_EQ(memory.chunk_count(), 2U);
    // First the rest of the third chunk, then the second again, from its first page on.
    alloc_pages(memory, pages_in_chunk - 1);
    EXPECT_EQ(memory.chunk_count(), 2U);
    const auto again = alloc_pages(memory, pages_in_chunk);
    EXPECT_EQ(memory.chunk_count(), 3U);
    for (usize page = 0; page < pages_in_chunk; ++page)
        EXPECT_EQ(page_of(again[page][0]), pages_in_chunk + page);
    EXPECT_EQ(page_of(memory.alloc(8)), 3 * pages_in_chunk);
}

TEST(pool, the_memory_of_a_freed_chunk_is_discarded)
{
    // Discarded pages read as zero.
    pool memory(system_allocator, 2 * mib);
    const pool_ref stays = memory.alloc(8);
    auto pages = alloc_pages(memory, 2 * pages_in_chunk - 1);
    const pool_ref stale = pages.back()[2];
    std::memset(memory.at(stale), 7, 1352);
    for (usize page = pages_in_chunk - 1; page < pages.size(); ++page)
        free_all(memory, pages[page]);
    EXPECT_EQ(memory.chunk_count(), 1U);
    EXPECT_TRUE(
        std::all_of(memory.at(stale), memory.at(stale) + 1352, [](u8 byte) { return byte == 0; }));
    EXPECT_NE(stays, no_block);
}

/// The chunks of the next `count` pages.
std::vector<usize> next_chunks(pool& memory, usize count)
{
    std::vector<usize> chunks;
    for (const auto& page : alloc_pages(memory, count)) chunks.push_back(chunk_of(page[0]));
    return chunks;
}

/// Three chunks without free pages.
class full_chunks : public testing::Test {
  protected:
    /// Frees the next `count` pages of a chunk.
    void free_pages(usize chunk, usize count)
    {
        for (; count != 0; --count)
            free_all(memory, pages[chunk * pages_in_chunk + freed[chunk]++]);
    }

    pool memory{system_allocator, 8 * mib};
    std::vector<std::vector<pool_ref>> pages = alloc_pages(memory, 3 * pages_in_chunk);
    std::array<usize, 3> freed{};
};

TEST_F(full_chunks, the_fullest_chunk_provides_the_next_page)
{
    free_pages(0, 3);
    free_pages(1, 1);
    free_pages(2, 2);
    EXPECT_EQ(next_chunks(memory, 7), (std::vector<usize>{1, 2, 2, 0, 0, 0, 3}));
}

TEST_F(full_chunks, of_equally_full_chunks_the_last_to_get_a_free_page_is_first)
{
    free_pages(0, 1);
    free_pages(1, 1);
    EXPECT_EQ(next_chunks(memory, 2), (std::vector<usize>{1, 0}));
}

TEST_F(full_chunks, a_chunk_moves_only_after_those_with_fewer_free_pages)
{
    free_pages(2, 4);
    free_pages(1, 4);
    free_pages(0, 4); // before both
    EXPECT_EQ(next_chunks(memory, 2), (std::vector<usize>{0, 0}));
    free_pages(0, 3);
    EXPECT_EQ(next_chunks(memory, 4), (std::vector<usize>{1, 1, 1, 1}));
    EXPECT_EQ(next_chunks(memory, 4), (std::vector<usize>{2, 2, 2, 2}));
    EXPECT_EQ(next_chunks(memory, 6), (std::vector<usize>{0, 0, 0, 0, 0, 3}));
}

TEST_F(full_chunks, a_chunk_in_the_middle_can_become_free)
{
    free_pages(2, 250);
    free_pages(0, 255);
    free_pages(1, 3);
    free_pages(0, 1);
    EXPECT_EQ(memory.chunk_count(), 2U);
    const auto chunks = next_chunks(memory, 254);
    EXPECT_EQ(std::count(chunks.begin(), chunks.begin() + 3, 1U), 3);
    EXPECT_EQ(std::count(chunks.begin() + 3, chunks.begin() + 253, 2U), 250);
    EXPECT_EQ(chunks.back(), 0U); // a freed chunk is reused before a new one
}

TEST_F(full_chunks, freeing_pages_in_any_order_keeps_the_fullest_chunk_first)
{
    // Of equally full chunks the model accepts any.
    test::random_source random(1);
    std::array<usize, 3> held{256, 256, 256};
    std::array<std::vector<std::vector<pool_ref>>, 3> blocks;
    for (auto& page : pages) blocks[chunk_of(page[0])].push_back(page);
    for (int round = 0; round < 20000; ++round) {
        const usize chunk = random.below(3);
        if (random.below(round / 500 % 2 == 0 ? 3 : 8) != 0 && held[chunk] > 1) {
            std::swap(blocks[chunk][random.below(static_cast<u32>(held[chunk]))],
                      blocks[chunk].back());
            free_all(memory, blocks[chunk].back());
            blocks[chunk].pop_back();
            --held[chunk];
            continue;
        }
        usize fullest = 0;
        for (const usize free : {256 - held[0], 256 - held[1], 256 - held[2]})
            if (free != 0 && (fullest == 0 || free < fullest)) fullest = free;
        if (fullest == 0) continue;
        const auto page = alloc_many(memory, pool::large_limit, 3);
        const usize from = chunk_of(page[0]);
        ASSERT_LT(from, 3U);
        ASSERT_EQ(256 - held[from], fullest) << round;
        ++held[from];
        blocks[from].push_back(page);
    }
}

// Random operations

/// A pool and a simple model of its content.
class pool_model {
  public:
    explicit pool_model(u64 limit) : memory_(system_allocator, limit) {}

    pool& memory() { return memory_; }
    usize size() const { return blocks_.size(); }

    void alloc(u32 size)
    {
        const pool_ref block = memory_.alloc(size);
        if (block != no_block) fill(block, size);
    }

    void free(u32 number)
    {
        const auto at = take(number);
        memory_.free(at.first);
    }

    void realloc(u32 number, u32 size)
    {
        const auto [block, content] = take(number);
        const pool_ref moved = memory_.realloc(block, size);
        if (moved == no_block) {
            blocks_.emplace(block, content);
            return expect(block);
        }
        const usize kept = std::min<usize>(size, content.size());
        ASSERT_TRUE(std::equal(content.begin(), content.begin() + static_cast<i64>(kept),
                               memory_.at(moved)));
        fill(moved, size);
    }

    void expect_all()
    {
        for (const auto& [block, content] : blocks_) expect(block);
    }

  private:
    /// Fills a block with random bytes, after checking that it overlaps no other.
    void fill(pool_ref block, u32 size)
    {
        ASSERT_EQ(block % 2, 0U);
        ASSERT_EQ(offset_of(block) % 8, 0U);
        ASSERT_GE(offset_of(block) % pool::page_size, page_header);
        const auto after = blocks_.lower_bound(block);
        if (after != blocks_.end()) {
            ASSERT_LE(offset_of(block) + rounded(size), offset_of(after->first));
        }
        if (after != blocks_.begin()) {
            const auto before = std::prev(after);
            ASSERT_LE(offset_of(before->first) + before->second.size(), offset_of(block));
        }
        test::bytes content(size);
        for (u8& byte : content) byte = static_cast<u8>(random_.next());
        std::copy(content.begin(), content.end(), memory_.at(block));
        blocks_.emplace(block, std::move(content));
    }

    std::pair<pool_ref, test::bytes> take(u32 number)
    {
        const auto at = std::next(blocks_.begin(), number);
        expect(at->first);
        std::pair<pool_ref, test::bytes> taken = *at;
        blocks_.erase(at);
        return taken;
    }

    void expect(pool_ref block)
    {
        const test::bytes& content = blocks_.at(block);
        ASSERT_TRUE(std::equal(content.begin(), content.end(), memory_.at(block)));
    }

    pool memory_;
    test::random_source random_{1};
    std::map<pool_ref, test::bytes> blocks_;
};

/// Random sizes, most of them small.
u32 random_size(test::random_source& random)
{
    return random.below(1 + random.below(1U << (4 + random.below(7))));
}

void expect_equal_to_model(u64 limit, u32 seed, u32 held)
{
    pool_model model(limit);
    test::random_source random(seed);
    for (u32 round = 0; round < 20000; ++round) {
        const auto blocks = static_cast<u32>(model.size());
        const bool fills = blocks < held * (round / 4000 % 2 + 1) / 2;
        if (blocks == 0 || (fills && random.below(2) == 0)) {
            model.alloc(random_size(random));
        } else if (random.below(fills ? 4 : 2) == 0) {
            model.free(random.below(blocks));
        } else {
            model.realloc(random.below(blocks), random_size(random));
        }
        if (testing::Test::HasFatalFailure()) return;
    }
    model.expect_all();
    while (model.size() != 0) model.free(random.below(static_cast<u32>(model.size())));
    EXPECT_EQ(model.memory().chunk_count(), 0U);
}

TEST(pool, blocks_keep_their_content_in_any_order_of_calls)
{
    for (u32 seed = 1; seed <= 3; ++seed) expect_equal_to_model(64 * mib, seed, 500 * seed);
}

TEST(pool, blocks_keep_their_content_when_memory_runs_out)
{
    expect_equal_to_model(mib, 4, 3000);
}

// No memory

TEST(pool, of_less_than_a_chunk_has_no_blocks)
{
    for (const u64 limit : {u64{0}, mib - 1}) {
        pool memory(system_allocator, limit);
        EXPECT_EQ(memory.alloc(1), no_block);
        EXPECT_EQ(memory.alloc(1352), no_block);
        EXPECT_EQ(memory.realloc(no_block, 10), no_block);
        EXPECT_EQ(memory.chunk_count(), 0U);
    }
}

TEST(pool, returns_no_block_when_exhausted_and_keeps_the_others)
{
    pool memory(system_allocator, mib + mib / 2); // one chunk
    const auto pages = alloc_pages(memory, pages_in_chunk);
    for (usize i = 0; i < pages.size(); ++i)
        for (const pool_ref block : pages[i])
            std::memset(memory.at(block), static_cast<u8>(i), 1352);
    for (const u32 size : {1U, 16U, 512U, 1352U}) EXPECT_EQ(memory.alloc(size), no_block) << size;
    for (usize i = 0; i < pages.size(); ++i)
        for (const pool_ref block : pages[i])
            ASSERT_TRUE(std::all_of(memory.at(block), memory.at(block) + 1352,
                                    [&](u8 byte) { return byte == static_cast<u8>(i); }));
    // A freed block is reused.
    memory.free(pages[17][1]);
    EXPECT_EQ(memory.alloc(1352), pages[17][1]);
    EXPECT_EQ(memory.alloc(1352), no_block);
    EXPECT_EQ(memory.chunk_count(), 1U);
}

TEST(pool, failed_realloc_leaves_the_block_unchanged)
{
    pool memory(system_allocator, mib);
    const pool_ref block = memory.alloc(16);
    std::memset(memory.at(block), 7, 16);
    alloc_pages(memory, pages_in_chunk - 1);
    EXPECT_EQ(memory.realloc(block, 17), no_block);
    EXPECT_EQ(memory.realloc(block, 1000), no_block);
    EXPECT_TRUE(std::all_of(memory.at(block), memory.at(block) + 16, [](u8 x) { return x == 7; }));
    EXPECT_EQ(memory.realloc(block, 16), block);
    EXPECT_EQ(memory.alloc(16), block + 4); // the block is not on the free list
}

} // namespace
} // namespace quarnex
