#include "common/bytes.h"

#include <array>
#include <gtest/gtest.h>

namespace quarnex {
namespace {

TEST(bytes, loads_are_little_endian_at_any_alignment)
{
    std::array<u8, 16> memory{};
    for (usize at = 0; at < 8; ++at) {
        for (u8 i = 0; i < 8; ++i) memory[at + i] = static_cast<u8>(0xF1 + i);
        EXPECT_EQ(load_u16(&memory[at]), 0xF2F1);
        EXPECT_EQ(load_u32(&memory[at]), 0xF4F3F2F1U);
        EXPECT_EQ(load_u64(&memory[at]), 0xF8F7F6F5F4F3F2F1U);
    }
}

/// Stores `value` at the second byte of an array filled with 0xEE.
template <class T>
std::array<u8, sizeof(T) + 2> stored(T value)
{
    std::array<u8, sizeof(T) + 2> memory;
    memory.fill(0xEE);
    store_le(&memory[1], value);
    return memory;
}

TEST(bytes, stores_are_little_endian_and_change_no_other_byte)
{
    EXPECT_EQ(stored<u16>(0x1234), (std::array<u8, 4>{0xEE, 0x34, 0x12, 0xEE}));
    EXPECT_EQ(stored<u32>(0x12345678), (std::array<u8, 6>{0xEE, 0x78, 0x56, 0x34, 0x12, 0xEE}));
    EXPECT_EQ(stored<u64>(0x123456789ABCDEF0),
              (std::array<u8, 10>{0xEE, 0xF0, 0xDE, 0xBC, 0x9A, 0x78, 0x56, 0x34, 0x12, 0xEE}));
}

TEST(bytes, stores_have_the_width_of_their_name)
{
    std::array<u8, 9> memory{};
    store_u64(memory.data(), ~u64{0});
    store_u32(memory.data(), 0x04030201);
    store_u16(memory.data(), 0x0B0A);
    EXPECT_EQ(memory, (std::array<u8, 9>{0x0A, 0x0B, 3, 4, 0xFF, 0xFF, 0xFF, 0xFF, 0}));
}

TEST(bytes, load_u64_high_first_is_big_endian_at_any_alignment)
{
    std::array<u8, 16> memory{};
    for (usize at = 0; at < 8; ++at) {
        for (u8 i = 0; i < 8; ++i) memory[at + i] = static_cast<u8>(0xF1 + i);
        EXPECT_EQ(load_u64_high_first(&memory[at]), 0xF1F2F3F4F5F6F7F8U);
    }
}

TEST(bytes, store_u64_high_first_is_big_endian_and_changes_no_other_byte)
{
    std::array<u8, 10> memory;
    memory.fill(0xEE);
    store_u64_high_first(&memory[1], 0x123456789ABCDEF0);
    EXPECT_EQ(memory,
              (std::array<u8, 10>{0xEE, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0, 0xEE}));
}

TEST(bytes, byte_swap_reverses_the_bytes)
{
    EXPECT_EQ(byte_swap<u8>(0x12), 0x12);
    EXPECT_EQ(byte_swap<u16>(0x1234), 0x3412);
    EXPECT_EQ(byte_swap<u32>(0x12345678), 0x78563412U);
    EXPECT_EQ(byte_swap<u64>(0x123456789ABCDEF0), 0xF0DEBC9A78563412U);
}

} // namespace
} // namespace quarnex
