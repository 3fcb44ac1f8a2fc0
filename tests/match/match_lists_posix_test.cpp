#include "match/match_lists.h"

#include "support/limits.h"
#include "support/scoped_limits.h"
#include "support/shapes.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;

/// Allocates blocks of `size` bytes until that fails or `taken` is at its capacity.
void take_all(usize size, std::vector<owned_array<u8>>& taken)
{
    while (taken.size() < taken.capacity()) {
        taken.push_back(make_array<u8>(system_allocator, size));
        if (!taken.back()) break;
    }
}

TEST(match_lists, are_empty_without_memory_for_the_suffix_sorter)
{
    if (test::under_sanitizer)
        GTEST_SKIP() << "a sanitizer's shadow needs more than a limit allows";
    // The released room is enough for all arrays, but not for the sorter's own 256 KiB.
    const bytes block(5000 + search_reads_past);
    std::vector<owned_array<u8>> taken;
    taken.reserve(4000);
    owned_array<u8> room = make_array<u8>(system_allocator, 120000);
    const test::short_of_memory limit(0);
    for (const usize size : {256U << 10, 32U << 10}) take_all(size, taken);
    room.reset();
    const auto lists = find_match_lists({block.data(), 5000}, system_allocator);
    ASSERT_TRUE(lists);
    EXPECT_EQ(std::count(lists->mlen.get(), lists->mlen.get() + 5000, 0), 5000);
}

} // namespace
} // namespace quarnex
