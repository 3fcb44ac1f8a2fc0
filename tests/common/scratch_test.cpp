#include "common/scratch.h"

#include "support/limited_allocator.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::limited_allocator;

TEST(scratch, allocates_nothing_by_itself)
{
    limited_allocator recorder;
    {
        const scratch memory(recorder.get());
        EXPECT_EQ(&memory.source, &recorder.get());
        EXPECT_EQ(memory.table.entries, nullptr);
        EXPECT_EQ(memory.table.count, 0U);
    }
    EXPECT_TRUE(recorder.allocated().empty());
    EXPECT_TRUE(recorder.released().empty());
}

TEST(scratch, releases_the_table_that_was_left_in_it)
{
    limited_allocator recorder;
    {
        scratch memory(recorder.get());
        memory.table = {make_zeroed_array<u32>(memory.source, 1000), 1000, false, 0};
        EXPECT_TRUE(recorder.released().empty());
    }
    ASSERT_EQ(recorder.allocated().size(), 1U);
    EXPECT_EQ(recorder.allocated()[0].size, 4000U);
    EXPECT_EQ(recorder.released(), recorder.allocated());
}

TEST(scratch, releases_a_table_that_is_replaced)
{
    limited_allocator recorder;
    scratch memory(recorder.get());
    memory.table = {make_zeroed_array<u32>(memory.source, 1000), 1000, false, 0};
    memory.table = {make_zeroed_array<u32>(memory.source, 10), 10, false, 0};
    ASSERT_EQ(recorder.released().size(), 1U);
    EXPECT_EQ(recorder.released()[0], recorder.allocated()[0]);
}

} // namespace
} // namespace quarnex
