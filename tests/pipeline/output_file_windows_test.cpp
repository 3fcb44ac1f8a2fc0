#include "pipeline/output_file.h"

#include "support/exclusive_file.h"
#include "support/temp_dir.h"

#include <cerrno>
#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::temp_dir;

TEST(output_file, a_file_that_another_has_for_itself_cannot_be_created_and_stays)
{
    const temp_dir dir;
    test::write_file(dir / "out", test::to_bytes("theirs"));
    {
        const test::exclusive_file held(dir / "out");
        errno = 0;
        EXPECT_EQ(output_file::create(dir / "out"), nullptr);
        EXPECT_EQ(errno, EACCES);
    }
    EXPECT_EQ(test::read_file(dir / "out"), test::to_bytes("theirs"));
}

TEST(output_file, what_is_written_is_not_translated)
{
    const temp_dir dir;
    const auto file = output_file::create(dir / "out");
    const test::bytes lines = test::to_bytes("a\nb\r\nc\x1A\n");
    EXPECT_TRUE(file->write(lines.data(), lines.size()));
    EXPECT_EQ(test::read_file(dir / "out"), lines);
}

TEST(output_file, a_name_in_other_letters_is_the_same_file)
{
    const temp_dir dir;
    test::write_file(dir / "out", test::bytes(1000));
    ASSERT_TRUE(output_file::create(dir / "OUT"));
    EXPECT_EQ(test::read_file(dir / "out"), test::bytes());
}

} // namespace
} // namespace quarnex
