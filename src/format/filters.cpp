#include "format/filters.h"

#include "common/bytes.h"

#include <bit>

namespace quarnex {
namespace {

constexpr u32 branch_bytes = 5; // an opcode and its operand

constexpr bool is_branch(u8 opcode)
{
    return (opcode & 0xFE) == 0xE8;
}

/// The lowest branch opcode among the bytes of `word` has its top bit set in the result, and no bit
/// below that is set.
constexpr u64 mark_branches(u64 word)
{
    constexpr u64 ones = 0x0101010101010101;
    const u64 zero_at_branch = (word & 0xFE * ones) ^ 0xE8 * ones;
    return (zero_at_branch - ones) & ~zero_at_branch & 0x80 * ones;
}
static_assert(std::countr_zero(mark_branches(0xE9E80000E9EAE700)) == 31);
static_assert(mark_branches(0xE7EAC8C96869F8F9) == 0);

/// Place of the first branch opcode from `from` on; if there is none below it, `limit` or more.
u32 find_branch(const u8* data, u32 from, u32 limit)
{
    for (; from + sizeof(u64) <= limit; from += sizeof(u64)) {
        const u64 marks = mark_branches(load_u64(data + from));
        if (marks != 0) return from + static_cast<u32>(std::countr_zero(marks)) / 8;
    }
    while (from < limit && !is_branch(data[from])) ++from;
    return from;
}

/// Whether a byte can be the highest one of an operand that is moved: all its bits are the sign of
/// a distance below 16 MiB.
constexpr bool is_sign(u8 byte)
{
    return byte == 0x00 || byte == 0xFF;
}

// An opcode that is left alone may be no opcode, or its operand may hold what looks like the next
// one.  `skipped` tells of those in the three places in front of a branch: bit 0 stands for the
// nearest.  All that decides is the same before and behind the filter, which can so be undone.

/// Whether the operand of the branch at `branch` is moved.
bool is_moved(const u8* branch, u32 skipped)
{
    if (!is_sign(branch[branch_bytes - 1])) return false;
    if (skipped == 0) return true;
    // The highest byte of the skipped opcode's operand lies in this operand.
    return std::has_single_bit(skipped) && !is_sign(branch[4 - std::bit_width(skipped)]);
}

/// Moves an operand, a number of 25 bits with its sign, by `distance`.
u32 move_operand(u32 operand, u32 distance, u32 skipped)
{
    u32 moved = operand + distance;
    if (skipped != 0) {
        // The byte that is_moved() has looked at must not become a sign.  Where it does, the
        // complement of the bits up to it, moved again, is the complement of the operand's: no
        // sign.
        const u32 low_bits = 32 - 8 * static_cast<u32>(std::bit_width(skipped));
        if (is_sign(static_cast<u8>(moved >> (low_bits - 8)))) {
            moved = (moved ^ ((1U << low_bits) - 1)) + distance;
        }
    }
    return static_cast<u32>(static_cast<i32>(moved << 7) >> 7);
}

} // namespace

void x86_filter(std::span<u8> block, filter_use use)
{
    if (block.size() < branch_bytes) return;
    u8* const data = block.data();
    const u32 limit = static_cast<u32>(block.size()) - (branch_bytes - 1);
    u32 skipped = 0;
    u32 last = ~0U; // place of the opcode before; at first one in front of the block
    for (u32 pos = find_branch(data, 0, limit); pos < limit; pos = find_branch(data, pos, limit)) {
        const u32 gap = pos - last;
        last = pos;
        skipped = gap < 4 ? skipped << (gap - 1) & 7 : 0;
        if (!is_moved(data + pos, skipped)) {
            skipped = skipped << 1 | 1;
            ++pos;
            continue;
        }
        const u32 next = pos + branch_bytes;
        u8* const operand = data + pos + 1;
        const u32 distance = use == filter_use::apply ? next : 0 - next;
        store_u32(operand, move_operand(load_u32(operand), distance, skipped));
        pos = next;
    }
}

void delta_filter(std::span<u8> block, filter_use use)
{
    constexpr usize stride = 3;
    const usize whole = block.size() - block.size() % stride;
    if (use == filter_use::undo) {
        for (usize i = stride; i < whole; ++i)
            block[i] = static_cast<u8>(block[i] + block[i - stride]);
    } else {
        for (usize i = whole; i-- > stride;)
            block[i] = static_cast<u8>(block[i] - block[i - stride]);
    }
}

void run_filter(u8 filter_flags, std::span<u8> block, filter_use use)
{
    switch (filter_flags & filter_mask) {
    case filter_x86:
        return x86_filter(block, use);
    case filter_delta:
        return delta_filter(block, use);
    default:
        return;
    }
}

} // namespace quarnex
