#include "common/equal_bytes.h"

#include "support/shapes.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;

/// Buffers that end where equal_bytes() may read last: one more byte is the sanitizer's.
constexpr u32 longest = 40;
constexpr usize buffer_bytes = longest + equal_bytes_overread;

TEST(equal_bytes, finds_a_difference_in_any_bit_at_any_place_below_any_limit)
{
    const bytes a(buffer_bytes, 0x5A);
    for (u32 place = 0; place < longest; ++place) {
        for (int bit = 0; bit < 8; ++bit) {
            bytes b = a;
            b[place] = static_cast<u8>(b[place] ^ 1 << bit);
            for (u32 limit = 0; limit <= longest; ++limit) {
                ASSERT_EQ(equal_bytes(a.data(), b.data(), limit), std::min(place, limit))
                    << "bit " << bit << " of byte " << place << ", limit " << limit;
            }
        }
    }
}

TEST(equal_bytes, the_first_of_two_differences_counts)
{
    const bytes a(buffer_bytes);
    bytes b = a;
    b[11] = 1;
    b[9] = 0x80;
    EXPECT_EQ(equal_bytes(a.data(), b.data(), longest), 9U);
}

TEST(equal_bytes, stops_at_the_limit_when_all_agree)
{
    const bytes a(buffer_bytes, 7);
    for (u32 limit = 0; limit <= longest; ++limit) {
        EXPECT_EQ(equal_bytes(a.data(), a.data(), limit), limit);
    }
}

TEST(equal_bytes, the_strings_may_overlap)
{
    const bytes a = test::find_shape("short_period").make(buffer_bytes + 3, 2); // a period of 3
    EXPECT_EQ(equal_bytes(a.data(), a.data() + 3, longest), longest);
    EXPECT_EQ(equal_bytes(a.data(), a.data() + 1, longest), 0U);
}

} // namespace
} // namespace quarnex
