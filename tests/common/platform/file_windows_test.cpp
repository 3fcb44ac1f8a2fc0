#include "common/platform/file.h"

#include "support/exclusive_file.h"
#include "support/temp_dir.h"

#include <cerrno>
#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::temp_dir;

TEST(system_file, a_file_opened_exclusively_elsewhere_cannot_be_created)
{
    const temp_dir dir;
    test::write_file(dir / "out", test::bytes_of("theirs"));
    {
        const test::exclusive_file held(dir / "out");
        system_file file;
        EXPECT_EQ(file.create((dir / "out").c_str()), EACCES);
        EXPECT_EQ(file.open((dir / "out").c_str()), EACCES);
    }
    EXPECT_EQ(test::read_file(dir / "out"), test::bytes_of("theirs"));
}

TEST(system_file, names_are_case_insensitive)
{
    const temp_dir dir;
    test::write_file(dir / "out", test::bytes(1000));
    system_file file;
    ASSERT_EQ(file.create((dir / "OUT").c_str()), 0);
    EXPECT_EQ(test::read_file(dir / "out"), test::bytes());
}

} // namespace
} // namespace quarnex
