#include "match/trie.h"

#include "support/codec_runs.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <utility>
#include <vector>

namespace quarnex {
namespace {

constexpr u64 mib = 1 << 20;

/// A gap in the address space of `size` bytes and a page, followed by a guard page.  All other gaps
/// are filled, so the next mapping of `size` bytes, or of a page more, ends at the guard page.
class guarded_gap {
  public:
    explicit guarded_gap(usize size)
    {
        const usize gap_size = size + pool::page_size;
        u8* const gap = map(gap_size + pool::page_size);
        fillers_.push_back({gap + gap_size, pool::page_size});
        munmap(gap, gap_size);
        u8* next = map(size);
        for (; next < gap || next >= gap + gap_size; next = map(size))
            fillers_.push_back({next, size});
        munmap(next, size);
    }
    ~guarded_gap()
    {
        for (const auto& [address, size] : fillers_) munmap(address, size);
    }
    guarded_gap(const guarded_gap&) = delete;
    guarded_gap& operator=(const guarded_gap&) = delete;

  private:
    static u8* map(usize size)
    {
        return static_cast<u8*>(mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    }

    std::vector<std::pair<u8*, usize>> fillers_;
};

TEST(trie, reads_nothing_past_its_memory)
{
    // With two symbols all nodes take blocks of 16 bytes, and some of the last ones are lists.
    for (u64 seed = 1; seed <= 10; ++seed) {
        const test::bytes block = test::find_shape("two_symbols").make(150000, seed);
        const auto text = test::exact_buffer(block.size() + trie_reads_past);
        std::copy(block.begin(), block.end(), text.get());
        const guarded_gap gap(mib);
        trie tree({text.get(), static_cast<u32>(block.size())}, system_allocator, mib);
        trie_records found;
        u32 longest = 0;
        for (u32 pos = 1; pos < block.size(); ++pos) {
            const u32 count = tree.trie_matches(pos, found);
            if (count != 0) longest = std::max(longest, found[count - 1].length);
        }
        EXPECT_GT(longest, 10U);
    }
}

} // namespace
} // namespace quarnex
