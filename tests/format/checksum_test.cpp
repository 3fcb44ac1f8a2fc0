#include "format/checksum.h"

#include "support/shapes.h"

#include <gtest/gtest.h>
#include <string_view>

namespace quarnex::test {
namespace {

TEST(checksum, is_the_crc32_of_gzip)
{
    const std::string_view digits = "123456789";
    EXPECT_EQ(crc32(0, reinterpret_cast<const u8*>(digits.data()), digits.size()), 0xCBF43926U);
    EXPECT_EQ(crc32(0, nullptr, 0), 0U);
}

TEST(checksum, combined_sums_are_those_of_the_whole)
{
    const bytes data = find_shape("random").make(70000, 1);
    const u32 whole = crc32(0, data.data(), data.size());
    for (const usize cut : {0U, 1U, 2U, 255U, 4096U, 65537U, 69999U, 70000U}) {
        const u32 first = crc32(0, data.data(), cut);
        const u32 second = crc32(0, data.data() + cut, data.size() - cut);
        EXPECT_EQ(combine_crc32(first, second, data.size() - cut), whole) << cut;
        EXPECT_EQ(crc32(first, data.data() + cut, data.size() - cut), whole) << cut;
    }
}

TEST(checksum, pieces_beyond_4_gib_are_combined)
{
    // Zeros in two steps and in one: 2^33 + 5 of them.
    const u8 zeros[5] = {};
    const u32 first = 0x12345678;
    const u32 five = crc32(0, zeros, sizeof zeros);
    u32 power = combine_crc32(0, crc32(0, zeros, 1), 1); // one zero byte, doubled 33 times
    for (u32 i = 0; i < 33; ++i) power = combine_crc32(power, power, u64{1} << i);
    const u32 long_run = combine_crc32(power, five, 5);
    EXPECT_EQ(combine_crc32(first, long_run, (u64{1} << 33) + 5),
              combine_crc32(combine_crc32(first, power, u64{1} << 33), five, 5));
}

} // namespace
} // namespace quarnex::test
