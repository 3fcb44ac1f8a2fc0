#include "pipeline/output_file.h"

#include "support/limited_allocator.h"
#include "support/pipeline_jobs.h"
#include "support/process_entries.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

namespace quarnex::test {
namespace {

TEST(output_file, holds_the_names_of_both_files)
{
    std::string source = "from";
    const output_ref file = output_file::make(system_allocator, source.c_str(), "to");
    source = "changed";
    ASSERT_TRUE(file);
    EXPECT_STREQ(file->source_name(), "from");
    EXPECT_STREQ(file->out_name(), "to");
    EXPECT_FALSE(file->file.is_open());
}

TEST(output_file, is_closed_and_freed_by_its_last_owner)
{
    const temp_dir dir;
    limited_allocator memory;
    const usize before = open_descriptors();
    {
        output_ref first = output_file::make(memory.get(), "in", (dir / "out").c_str());
        ASSERT_TRUE(first);
        ASSERT_EQ(first->file.create(first->out_name()), 0);
        EXPECT_EQ(open_descriptors(), before + 1);
        const output_ref second = first;
        output_ref third = std::move(first);
        EXPECT_FALSE(first); // NOLINT(bugprone-use-after-move): a moved-from reference is empty
        EXPECT_EQ(second, third);
        third = {};
        EXPECT_EQ(open_descriptors(), before + 1);
    }
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(memory.in_use(), 0U);
}

TEST(output_file, is_empty_without_memory)
{
    for (const u64 call : {1U, 2U}) {
        limited_allocator memory;
        memory.refuse_call(call);
        EXPECT_FALSE(output_file::make(memory.get(), "in", "out")) << call;
        EXPECT_EQ(memory.in_use(), 0U) << call;
    }
}

TEST(output_file, only_the_first_failure_reason_is_kept)
{
    const output_ref file = output_file::make(system_allocator, "in", "out");
    EXPECT_FALSE(file->failed());
    file->fail(status::corrupt);
    file->fail(status::no_memory);
    EXPECT_TRUE(file->failed());
    EXPECT_EQ(file->failure(), status::corrupt);
}

} // namespace
} // namespace quarnex::test
