#include "common/equal_bytes.h"

#include "support/shapes.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;

/// Buffers end at the read margin of equal_bytes(), so that a sanitizer finds reads past it.
constexpr u32 max_limit = 40;
constexpr usize buffer_bytes = max_limit + equal_bytes_overread;

TEST(equal_bytes, finds_a_difference_in_any_bit_of_any_byte_below_any_limit)
{
    const bytes a(buffer_bytes, 0x5A);
    for (u32 index = 0; index < max_limit; ++index) {
        for (int bit = 0; bit < 8; ++bit) {
            bytes b = a;
            b[index] = static_cast<u8>(b[index] ^ 1 << bit);
            for (u32 limit = 0; limit <= max_limit; ++limit) {
                ASSERT_EQ(equal_bytes(a.data(), b.data(), limit), std::min(index, limit))
                    << "bit " << bit << " of byte " << index << ", limit " << limit;
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
    EXPECT_EQ(equal_bytes(a.data(), b.data(), max_limit), 9U);
}

TEST(equal_bytes, stops_at_the_limit_when_all_agree)
{
    const bytes a(buffer_bytes, 7);
    for (u32 limit = 0; limit <= max_limit; ++limit) {
        EXPECT_EQ(equal_bytes(a.data(), a.data(), limit), limit);
    }
}

TEST(equal_bytes, the_strings_may_overlap)
{
    const bytes a = test::find_shape("short_period").make(buffer_bytes + 3, 2); // a period of 3
    EXPECT_EQ(equal_bytes(a.data(), a.data() + 3, max_limit), max_limit);
    EXPECT_EQ(equal_bytes(a.data(), a.data() + 1, max_limit), 0U);
}

} // namespace
} // namespace quarnex
