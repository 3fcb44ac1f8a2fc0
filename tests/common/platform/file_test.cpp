#include "common/platform/file.h"

#include "support/process_entries.h"
#include "support/system_differences.h"
#include "support/temp_dir.h"

#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#include <utility>

namespace quarnex {
namespace {

using test::bytes;
using test::bytes_of;
using test::open_descriptors;
using test::read_file;
using test::temp_dir;

int write(system_file& file, const std::string& text)
{
    return file.write(bytes_of(text).data(), text.size());
}

system_file create(const std::string& name)
{
    system_file file;
    EXPECT_EQ(file.create(name.c_str()), 0);
    return file;
}

system_file open(const std::string& name)
{
    system_file file;
    EXPECT_EQ(file.open(name.c_str()), 0);
    return file;
}

TEST(system_file, writes_are_unbuffered)
{
    const temp_dir dir;
    system_file file = create(dir / "out");
    EXPECT_EQ(write(file, "one"), 0);
    EXPECT_EQ(read_file(dir / "out"), bytes_of("one"));
    EXPECT_EQ(write(file, "two"), 0);
    EXPECT_EQ(read_file(dir / "out"), bytes_of("onetwo"));
    EXPECT_EQ(file.close(), 0);
    EXPECT_EQ(read_file(dir / "out"), bytes_of("onetwo"));
}

TEST(system_file, create_truncates_an_existing_file)
{
    const temp_dir dir;
    test::write_file(dir / "out", bytes(1000));
    const system_file file = create(dir / "out");
    EXPECT_EQ(read_file(dir / "out"), bytes());
}

TEST(system_file, line_ends_are_not_translated)
{
    const temp_dir dir;
    const bytes lines = bytes_of("a\nb\r\nc\x1A\n");
    system_file file = create(dir / "out");
    EXPECT_EQ(file.write(lines.data(), lines.size()), 0);
    EXPECT_EQ(read_file(dir / "out"), lines);
    bytes back(100);
    EXPECT_EQ(open(dir / "out").read(back.data(), back.size()).count, lines.size());
}

TEST(system_file, a_read_is_short_only_at_the_end_of_the_file)
{
    const temp_dir dir;
    test::write_file(dir / "in", bytes_of("abcdef"));
    system_file file = open(dir / "in");
    EXPECT_EQ(file.size(), 6U);
    bytes buffer(4);
    for (const usize expected : {4U, 2U, 0U}) {
        const read_result got = file.read(buffer.data(), buffer.size());
        EXPECT_EQ(got.count, expected);
        EXPECT_EQ(got.error, 0);
    }
}

TEST(system_file, a_gap_left_by_a_seek_is_zero_and_can_be_filled_later)
{
    const temp_dir dir;
    system_file file = create(dir / "out");
    ASSERT_EQ(file.seek(3), 0);
    EXPECT_EQ(write(file, "end"), 0);
    EXPECT_EQ(read_file(dir / "out"), (bytes{0, 0, 0, 'e', 'n', 'd'}));
    ASSERT_EQ(file.seek(0), 0);
    EXPECT_EQ(write(file, "gap"), 0);
    EXPECT_EQ(read_file(dir / "out"), bytes_of("gapend"));
}

TEST(system_file, writes_at_any_offset)
{
    const temp_dir dir;
    system_file file = create(dir / "file");
    const bytes text = bytes_of("abcdef");
    EXPECT_EQ(file.write_at(3, text.data(), 3), 0);
    EXPECT_EQ(file.write_at(0, text.data() + 3, 3), 0);
    EXPECT_EQ(file.write_at(1, text.data(), 0), 0);
    EXPECT_EQ(read_file(dir / "file"), bytes_of("defabc"));
    EXPECT_EQ(file.write_at(u64{INT64_MAX} + 1, text.data(), 1), EINVAL);
}

TEST(system_file, offsets_and_sizes_exceed_4_gib)
{
    constexpr u64 beyond_32_bits = (u64{5} << 30) + 3;
    const temp_dir dir;
    system_file out = create(dir / "sparse");
    ASSERT_EQ(out.seek(beyond_32_bits), 0);
    EXPECT_EQ(write(out, "end"), 0);
    system_file in = open(dir / "sparse");
    EXPECT_EQ(in.size(), beyond_32_bits + 3);
    ASSERT_EQ(in.seek(beyond_32_bits), 0);
    bytes end(3);
    EXPECT_EQ(in.read(end.data(), end.size()).count, 3U);
    EXPECT_EQ(end, bytes_of("end"));
}

TEST(system_file, seeking_past_the_largest_offset_fails)
{
    const temp_dir dir;
    system_file file = create(dir / "out");
    EXPECT_EQ(file.seek(u64{INT64_MAX} + 1), EINVAL);
    EXPECT_EQ(file.seek(~u64{0}), EINVAL);
    EXPECT_EQ(write(file, "at the start"), 0);
    EXPECT_EQ(std::filesystem::file_size(dir / "out"), 12U);
}

TEST(system_file, failure_to_open_or_create_returns_the_reason)
{
    const temp_dir dir;
    system_file file;
    EXPECT_EQ(file.open((dir / "missing").c_str()), ENOENT);
    EXPECT_EQ(file.create((dir / "missing/out").c_str()), ENOENT);
    EXPECT_EQ(file.create(dir.path().c_str()), test::errno_of_directory);
    EXPECT_FALSE(file.is_open());
}

TEST(system_file, size_is_0_for_an_empty_file_and_a_device)
{
    const temp_dir dir;
    test::write_file(dir / "empty", {});
    EXPECT_EQ(open(dir / "empty").size(), 0U);
    EXPECT_EQ(open(test::null_device).size(), 0U);
}

TEST(system_file, writing_nothing_succeeds)
{
    const temp_dir dir;
    system_file file = create(dir / "out");
    EXPECT_EQ(file.write(nullptr, 0), 0);
    EXPECT_EQ(read_file(dir / "out"), bytes());
}

TEST(system_file, is_closed_once_by_close_or_by_its_last_owner)
{
    const temp_dir dir;
    const usize before = open_descriptors();
    {
        system_file closed = create(dir / "closed");
        system_file moved = create(dir / "moved");
        EXPECT_EQ(open_descriptors(), before + 2);
        EXPECT_EQ(closed.close(), 0);
        EXPECT_FALSE(closed.is_open());
        EXPECT_EQ(closed.close(), 0);
        const system_file other = std::move(moved);
        EXPECT_TRUE(other.is_open());
        EXPECT_EQ(open_descriptors(), before + 1);
    }
    EXPECT_EQ(open_descriptors(), before);
}

} // namespace
} // namespace quarnex
