#include "pipeline/output_file.h"

#include <cerrno>
#include <gtest/gtest.h>

namespace quarnex {
namespace {

TEST(output_file, a_full_disk_is_noticed_by_the_very_write)
{
    const auto file = output_file::create("/dev/full");
    ASSERT_TRUE(file);
    const u8 any = 1;
    errno = 0;
    EXPECT_FALSE(file->write(&any, 1));
    EXPECT_EQ(errno, ENOSPC);
}

} // namespace
} // namespace quarnex
