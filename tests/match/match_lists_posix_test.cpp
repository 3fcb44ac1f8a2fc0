#include "match/match_lists.h"

#include "support/limits.h"
#include "support/scoped_limits.h"
#include "support/shapes.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;

/// Whether a block of so many bytes has lists while `spare` bytes are left.
std::optional<match_lists> lists_with(u64 spare, const bytes& padded)
{
    const test::short_of_memory limit(spare);
    return find_match_lists({padded.data(), static_cast<u32>(padded.size() - search_reads_past)},
                            system_allocator);
}

TEST(match_lists, without_memory_are_none)
{
    if (test::under_sanitizer)
        GTEST_SKIP() << "a sanitizer's shadow needs more than a limit allows";
    const bytes block(16 << 20);
    // The suffix array takes 64 MiB; then there are 16 MiB for the prefixes, 16 and 64 for the
    // lists.
    for (const u64 mib : {0U, 40U, 70U, 100U}) EXPECT_FALSE(lists_with(mib << 20, block)) << mib;
}

TEST(lcp_bytes, without_memory_leave_the_result_alone)
{
    if (test::under_sanitizer)
        GTEST_SKIP() << "a sanitizer's shadow needs more than a limit allows";
    const bytes text((16 << 20) + search_reads_past);
    const std::vector<u32> sa(16 << 20);
    bytes lcp((16 << 20) + 1, 99);
    const test::short_of_memory limit(0);
    EXPECT_FALSE(lcp_bytes(text.data(), sa.data(), 16 << 20, lcp.data(), system_allocator));
    EXPECT_EQ(std::count(lcp.begin(), lcp.end(), 99), static_cast<i64>(lcp.size()));
}

/// Takes the pieces of memory of `size` bytes that are left, as many as `taken` can hold.
void take_all(usize size, std::vector<owned_array<u8>>& taken)
{
    while (taken.size() < taken.capacity()) {
        taken.push_back(make_array<u8>(system_allocator, size));
        if (!taken.back()) break;
    }
}

TEST(match_lists, without_memory_for_the_sorters_tables_are_empty)
{
    if (test::under_sanitizer)
        GTEST_SKIP() << "a sanitizer's shadow needs more than a limit allows";
    // All other arrays have room in what is given back, but the sorter's 256 KiB have not.
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
