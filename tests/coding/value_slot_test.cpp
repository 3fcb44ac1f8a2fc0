#include "coding/value_slot.h"

#include <gtest/gtest.h>
#include <vector>

namespace quarnex {
namespace {

TEST(value_slot, values_below_4_are_their_own_slots)
{
    for (u32 value = 0; value < plain_slots; ++value) EXPECT_EQ(value_slot(value), value);
}

struct slot_edges {
    u32 slot;
    u32 first;
    u32 last;
    u32 extra_bits;
};

/// From the second power of two on, each is cut into two slots of the same width.
constexpr slot_edges edges[] = {
    {4, 4, 5, 1},
    {5, 6, 7, 1},
    {6, 8, 11, 2},
    {7, 12, 15, 2},
    {8, 16, 23, 3},
    {9, 24, 31, 3},
    {16, 256, 383, 7}, // value_slot(256) + 1 is the smallest alphabet: 17
    {30, 0x8000, 0xBFFF, 14},
    {31, 0xC000, 0xFFFF, 14},
    {32, 0x10000, 0x17FFF, 15},
    {61, 0x60000000, 0x7FFFFFFF, 29},
    {62, 0x80000000, 0xBFFFFFFF, 30},
    {63, 0xC0000000, 0xFFFFFFFF, 30},
};

TEST(value_slot, holds_the_values_between_its_edges)
{
    for (const auto& [slot, first, last, extra_bits] : edges) {
        EXPECT_EQ(value_slot(first), slot);
        EXPECT_EQ(value_slot(last), slot);
        EXPECT_EQ(value_slot(first - 1), slot - 1);
        if (slot + 1 < value_slots) {
            EXPECT_EQ(value_slot(last + 1), slot + 1);
        }
        EXPECT_EQ(slot_base(slot), first);
        EXPECT_EQ(slot_extra_bits(slot), extra_bits);
    }
}

TEST(value_slot, slots_join_without_gaps)
{
    for (u32 slot = plain_slots; slot < value_slots; ++slot) {
        const u64 end = u64{slot_base(slot)} + (u64{1} << slot_extra_bits(slot));
        const u64 next = slot + 1 < value_slots ? slot_base(slot + 1) : u64{1} << 32;
        EXPECT_EQ(end, next) << "slot " << slot;
    }
}

TEST(value_slot, base_and_extra_bits_give_back_values_near_powers_of_two)
{
    for (u32 bit = 2; bit < 32; ++bit) {
        for (const u32 value : {(1U << bit) - 1, 1U << bit, (1U << bit) + 1, (3U << bit >> 1) - 1,
                                3U << bit >> 1, (3U << bit >> 1) + 1}) {
            const u32 slot = value_slot(value);
            if (slot < plain_slots) continue; // 3, which needs no base
            const u32 extra = value & ((1U << slot_extra_bits(slot)) - 1);
            EXPECT_EQ(slot_base(slot) + extra, value);
        }
    }
}

} // namespace
} // namespace quarnex
