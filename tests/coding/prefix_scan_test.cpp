#include "coding/prefix_scan.h"

#include "support/shapes.h"

#include <gtest/gtest.h>
#include <numeric>
#include <vector>

namespace quarnex {
namespace {

using test::random_source;
using numbers = std::vector<u16>;

/// Both forms, which must agree and write `src.size()` numbers only.
numbers scaled(const numbers& src, u32 scale)
{
    const auto count = static_cast<u32>(src.size());
    numbers dest(count + 1, 0xABCD);
    scale_prefix_sums(src.data(), count, scale, dest.data());
    numbers portable(count + 1, 0xABCD);
    scale_prefix_sums_portably(src.data(), count, scale, portable.data());
    EXPECT_EQ(dest, portable);
    EXPECT_EQ(dest.back(), 0xABCD);
    dest.pop_back();
    return dest;
}

/// Likewise.
numbers maxima(numbers values)
{
    const auto count = static_cast<u32>(values.size());
    values.push_back(0xABCD);
    numbers portable = values;
    prefix_maxima(values.data(), count);
    prefix_maxima_portably(portable.data(), count);
    EXPECT_EQ(values, portable);
    EXPECT_EQ(values.back(), 0xABCD);
    values.pop_back();
    return values;
}

TEST(scale_prefix_sums, a_scale_of_65536_leaves_the_sums)
{
    const numbers src{1, 2, 3, 0, 0, 10, 1, 1, 1000, 0, 0, 0, 0, 0, 0, 31749};
    EXPECT_EQ(scaled(src, 0x10000), (numbers{1, 3, 6, 6, 6, 16, 17, 18, 1018, 1018, 1018, 1018,
                                             1018, 1018, 1018, 32767}));
}

TEST(scale_prefix_sums, rounds_down)
{
    EXPECT_EQ(scaled({1, 1, 1, 1, 1, 1, 1, 1}, 0x1FFFF),
              (numbers{1, 3, 5, 7, 9, 11, 13, 15})); // each a little less than twice the sum
    EXPECT_EQ(scaled({0xFFFF, 0, 0, 0, 0, 0, 0, 0}, 0xFFFF), numbers(8, 0xFFFE));
}

TEST(scale_prefix_sums, random_numbers)
{
    random_source random(1);
    for (int round = 0; round < 3000; ++round) {
        numbers src(scan_group * (1 + random.below(40)));
        const u32 limit = 1 + random.below(static_cast<u32>(32767 / src.size()));
        for (u16& number : src) number = static_cast<u16>(random.below(1 + limit));
        const u32 total = std::max(1U, std::accumulate(src.begin(), src.end(), 0U));
        const u32 scale = round % 3 == 0 ? random.below(0x20000) : (1U << 31) / total;
        const numbers results = scaled(src, scale);
        u64 sum = 0;
        for (usize i = 0; i < src.size(); ++i) {
            sum += src[i];
            ASSERT_EQ(results[i], sum * scale >> 16) << round << " at " << i;
        }
    }
}

TEST(prefix_maxima, a_maximum_reaches_the_next_groups_until_there_is_a_higher_one)
{
    numbers values(24, 0);
    values[3] = 5;
    values[4] = 4;
    values[18] = 0x7FFF;
    numbers expected(24, 5);
    std::fill_n(expected.begin(), 3, u16{0});
    std::fill(expected.begin() + 18, expected.end(), u16{0x7FFF});
    EXPECT_EQ(maxima(values), expected);
}

TEST(prefix_maxima, random_numbers)
{
    random_source random(2);
    for (int round = 0; round < 3000; ++round) {
        numbers values(scan_group * (1 + random.below(20)));
        for (u16& value : values)
            value = static_cast<u16>(random.below(1 + random.below(1U << random.below(16))));
        const numbers results = maxima(values);
        u16 maximum = 0;
        for (usize i = 0; i < values.size(); ++i) {
            maximum = std::max(maximum, values[i]);
            ASSERT_EQ(results[i], maximum) << round << " at " << i;
        }
    }
}

} // namespace
} // namespace quarnex
