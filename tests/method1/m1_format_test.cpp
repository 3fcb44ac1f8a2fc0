#include "method1/m1_format.h"

#include <array>
#include <gtest/gtest.h>
#include <vector>

namespace quarnex {
namespace {

struct integer_case {
    u32 value;
    std::vector<u8> bytes;
};

/// Each form at both of its limits, worked by hand.
const std::vector<integer_case> integer_cases{
    {0x00, {0x00}},
    {0x7F, {0x7F}},
    {0x80, {0x80, 0x80}},
    {0x1234, {0x92, 0x34}},
    {0x3FFF, {0xBF, 0xFF}},
    {0x4000, {0xC0, 0x00, 0x40}},
    {0x123456, {0xD2, 0x56, 0x34}},
    {0x1FFFFF, {0xDF, 0xFF, 0xFF}},
    {0x200000, {0xE0, 0x00, 0x00, 0x20}},
    {0x0ABCDEF1, {0xEA, 0xF1, 0xDE, 0xBC}},
    {0x0FFFFFFF, {0xEF, 0xFF, 0xFF, 0xFF}},
    {0x10000000, {0xF0, 0x00, 0x00, 0x00, 0x10}},
    {0xFFFFFFFF, {0xF0, 0xFF, 0xFF, 0xFF, 0xFF}},
};

TEST(m1_integer, is_written_in_its_shortest_form)
{
    for (const integer_case& known : integer_cases) {
        std::array<u8, 8> buffer{};
        const u8* const end = m1_put_integer(buffer.data(), known.value);
        EXPECT_EQ(std::vector<u8>(static_cast<const u8*>(buffer.data()), end), known.bytes)
            << known.value;
    }
}

TEST(m1_integer, is_read_from_its_shortest_form)
{
    for (const integer_case& known : integer_cases) {
        std::array<u8, 16> buffer;
        buffer.fill(0xA5); // the bytes that follow must not matter
        std::copy(known.bytes.begin(), known.bytes.end(), buffer.begin());
        const m1_integer read = m1_get_integer(buffer.data());
        EXPECT_EQ(read.value, known.value);
        EXPECT_EQ(read.bytes, known.bytes.size());
    }
}

TEST(m1_integer, ignores_the_low_nibble_of_the_longest_form)
{
    const std::array<u8, 8> bytes{0xFB, 0x78, 0x56, 0x34, 0x12};
    EXPECT_EQ(m1_get_integer(bytes.data()).value, 0x12345678U);
    EXPECT_EQ(m1_get_integer(bytes.data()).bytes, 5U);
}

} // namespace
} // namespace quarnex
