#include "common/platform/file.h"

#include "support/temp_dir.h"

#include <cerrno>
#include <gtest/gtest.h>

namespace quarnex {
namespace {

TEST(system_file, a_full_disk_fails_the_write_itself)
{
    system_file file;
    ASSERT_EQ(file.create("/dev/full"), 0);
    const u8 any = 1;
    EXPECT_EQ(file.write(&any, 1), ENOSPC);
}

TEST(system_file, a_read_error_is_returned)
{
    const test::temp_dir dir;
    system_file file;
    ASSERT_EQ(file.open(dir.path().c_str()), 0);
    u8 byte = 0;
    const read_result got = file.read(&byte, 1);
    EXPECT_EQ(got.count, 0U);
    EXPECT_EQ(got.error, EISDIR);
}

} // namespace
} // namespace quarnex
