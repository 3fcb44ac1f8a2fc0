#include "pipeline/output_file.h"

#include "support/process_entries.h"
#include "support/system_differences.h"
#include "support/temp_dir.h"

#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::open_descriptors;
using test::read_file;
using test::temp_dir;
using test::to_bytes;

bool write(output_file& file, const std::string& text)
{
    return file.write(to_bytes(text).data(), text.size());
}

TEST(output_file, what_is_written_is_in_the_file_at_once)
{
    const temp_dir dir;
    const auto file = output_file::create(dir / "out");
    ASSERT_TRUE(file);
    EXPECT_EQ(file->out_name, dir / "out");
    EXPECT_TRUE(write(*file, "one"));
    EXPECT_EQ(read_file(dir / "out"), to_bytes("one"));
    EXPECT_TRUE(write(*file, "two"));
    EXPECT_EQ(read_file(dir / "out"), to_bytes("onetwo"));
    EXPECT_TRUE(file->close());
    EXPECT_EQ(read_file(dir / "out"), to_bytes("onetwo"));
}

TEST(output_file, a_file_that_is_there_is_emptied)
{
    const temp_dir dir;
    test::write_file(dir / "out", bytes(1000));
    const auto file = output_file::create(dir / "out");
    ASSERT_TRUE(file);
    EXPECT_EQ(read_file(dir / "out"), bytes());
}

TEST(output_file, a_gap_left_by_a_seek_is_zero_and_can_be_filled_later)
{
    const temp_dir dir;
    const auto file = output_file::create(dir / "out");
    ASSERT_TRUE(file->seek(3));
    EXPECT_TRUE(write(*file, "end"));
    EXPECT_EQ(read_file(dir / "out"), (bytes{0, 0, 0, 'e', 'n', 'd'}));
    ASSERT_TRUE(file->seek(0));
    EXPECT_TRUE(write(*file, "gap"));
    EXPECT_EQ(read_file(dir / "out"), to_bytes("gapend"));
}

TEST(output_file, positions_go_beyond_4_gib)
{
    const temp_dir dir;
    const auto file = output_file::create(dir / "out");
    ASSERT_TRUE(file->seek(u64{6} << 30));
    EXPECT_TRUE(write(*file, "end"));
    EXPECT_EQ(std::filesystem::file_size(dir / "out"), (u64{6} << 30) + 3);
}

TEST(output_file, a_position_that_does_not_exist_fails_with_errno)
{
    const temp_dir dir;
    const auto file = output_file::create(dir / "out");
    errno = 0;
    EXPECT_FALSE(file->seek(~u64{0}));
    EXPECT_EQ(errno, EINVAL);
}

TEST(output_file, a_file_that_cannot_be_created_is_null_with_errno)
{
    const temp_dir dir;
    errno = 0;
    EXPECT_EQ(output_file::create(dir / "missing/out"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(output_file::create(dir.path()), nullptr);
    EXPECT_EQ(errno, test::errno_of_directory);
}

TEST(output_file, writing_nothing_succeeds)
{
    const temp_dir dir;
    const auto file = output_file::create(dir / "out");
    const u8 any = 1;
    EXPECT_TRUE(file->write(&any, 0));
    EXPECT_EQ(read_file(dir / "out"), bytes());
}

TEST(output_file, is_closed_once_by_close_or_by_its_last_owner)
{
    const temp_dir dir;
    const usize before = open_descriptors();
    {
        const auto closed = output_file::create(dir / "closed");
        auto dropped = output_file::create(dir / "dropped");
        EXPECT_EQ(open_descriptors(), before + 2);
        EXPECT_TRUE(closed->close());
        EXPECT_EQ(closed->stream_address(), nullptr);
        const auto other_owner = dropped;
        dropped.reset();
        EXPECT_EQ(open_descriptors(), before + 1);
    }
    EXPECT_EQ(open_descriptors(), before);
}

} // namespace
} // namespace quarnex
