// BCJ (branch, call, jump) conversion for x86: finds the opcodes E8 (call) and E9 (jmp) and adds
// the address of the next instruction to their 32-bit relative operands.  Only an operand whose
// highest byte is 00 or FF is converted, a distance below 16 MiB; its result is cut to 25 bits and
// sign-extended, so it stays convertible.
//
// The textbook form, to convert every E8 and E9, is not invertible: a byte E8 may be no opcode, and
// conversion can create or destroy such bytes in the operand of another one.  So converted operands
// are skipped, and an opcode that follows an unconverted one within three bytes is subject to a
// rule on bytes that are the same before and after conversion (is_converted(), convert_operand()).
#include "format/filters.h"

#include "common/bytes.h"

#include <bit>
#include <cassert>

namespace quarnex {
namespace {

constexpr u32 branch_bytes = 5; // opcode and operand

constexpr bool is_branch(u8 opcode)
{
    return (opcode & 0xFE) == 0xE8;
}

/// Zero-byte test on eight bytes at once: the lowest bit set in the result is the top bit of the
/// lowest branch opcode in `word`; 0 if there is none.
constexpr u64 mark_branches(u64 word)
{
    constexpr u64 ones = 0x0101010101010101;
    const u64 zero_at_branch = (word & 0xFE * ones) ^ 0xE8 * ones;
    return (zero_at_branch - ones) & ~zero_at_branch & 0x80 * ones;
}
static_assert(std::countr_zero(mark_branches(0xE9E80000E9EAE700)) == 31);
static_assert(mark_branches(0xE7EAC8C96869F8F9) == 0);

/// Position of the first branch opcode from `pos` on; `limit` or more if there is none below
/// `limit`.
u32 find_branch(const u8* data, u32 pos, u32 limit)
{
    for (; pos + sizeof(u64) <= limit; pos += sizeof(u64)) {
        const u64 marks = mark_branches(load_u64(data + pos));
        if (marks != 0) return pos + static_cast<u32>(std::countr_zero(marks)) / 8;
    }
    while (pos < limit && !is_branch(data[pos])) ++pos;
    return pos;
}

/// True if a byte can be the highest of a converted operand: all sign bits, of a distance below
/// 16 MiB.
constexpr bool is_sign(u8 byte)
{
    return byte == 0x00 || byte == 0xFF;
}

// The three-byte look-back made invertible: `skipped` is a bit mask of unconverted opcodes in the
// three bytes before a branch, bit 0 for the nearest.  Each of them may be a real branch, whose
// operand then contains this opcode.  All decisions depend only on properties that conversion
// preserves, so undoing takes the same ones.

/// True if the operand of the branch at `branch` is converted.
bool is_converted(const u8* branch, u32 skipped)
{
    if (!is_sign(branch[branch_bytes - 1])) return false;
    if (skipped == 0) return true;
    // The highest operand byte of a single skipped opcode lies in this operand.  It must be no
    // sign, and convert_operand() keeps it so.
    return std::has_single_bit(skipped) && !is_sign(branch[4 - std::bit_width(skipped)]);
}

/// Adds `distance` to an operand, and sign-extends the result from 25 bits.
u32 convert_operand(u32 operand, u32 distance, u32 skipped)
{
    u32 sum = operand + distance;
    if (skipped != 0) {
        // The byte that is_converted() tested must not become a sign.  If it does, complementing
        // the bits up to it and adding again gives the complement of the operand's byte: no sign.
        const u32 low_bits = 32 - 8 * static_cast<u32>(std::bit_width(skipped));
        if (is_sign(static_cast<u8>(sum >> (low_bits - 8)))) {
            sum = (sum ^ ((1U << low_bits) - 1)) + distance;
        }
    }
    return static_cast<u32>(static_cast<i32>(sum << 7) >> 7);
}

} // namespace

void x86_filter(std::span<u8> block, filter_use use)
{
    assert(block.size() <= INT32_MAX);
    if (block.size() < branch_bytes) return;
    u8* const data = block.data();
    const u32 limit = static_cast<u32>(block.size()) - (branch_bytes - 1);
    u32 skipped = 0;
    u32 last = ~0U; // position of the previous opcode; initially one before the block
    for (u32 pos = find_branch(data, 0, limit); pos < limit; pos = find_branch(data, pos, limit)) {
        const u32 gap = pos - last;
        last = pos;
        skipped = gap < 4 ? skipped << (gap - 1) & 7 : 0;
        if (!is_converted(data + pos, skipped)) {
            skipped = skipped << 1 | 1;
            ++pos;
            continue;
        }
        const u32 next = pos + branch_bytes;
        u8* const operand = data + pos + 1;
        const u32 distance = use == filter_use::apply ? next : 0 - next;
        store_u32(operand, convert_operand(load_u32(operand), distance, skipped));
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
