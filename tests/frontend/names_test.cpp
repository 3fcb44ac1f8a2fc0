#include "frontend/names.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

TEST(names, a_compressed_file_always_gets_the_suffix)
{
    EXPECT_EQ(compressed_name("a.txt"), "a.txt.qrx");
    EXPECT_EQ(compressed_name("a.qrx"), "a.qrx.qrx");
    EXPECT_EQ(compressed_name(""), ".qrx");
}

TEST(names, a_restored_file_loses_the_suffix_in_any_mix_of_cases)
{
    EXPECT_EQ(restored_name("a.qrx"), "a");
    EXPECT_EQ(restored_name("b.QrX"), "b");
    EXPECT_EQ(restored_name("c.QRX"), "c");
    EXPECT_EQ(restored_name("dir/.qrx"), "dir/");
}

TEST(names, other_restored_files_get_another_suffix)
{
    EXPECT_EQ(restored_name("d"), "d.out");
    EXPECT_EQ(restored_name("e.qr"), "e.qr.out");
    EXPECT_EQ(restored_name("f.qrx.x"), "f.qrx.x.out");
}

} // namespace
} // namespace quarnex
