// match/trie_nodes.h - memory layout of trie nodes
//
// Adaptive node sizes, as in ART (Leis, Kemper and Neumann 2013): a sorted list of up to 32
// children, a bitmap with packed children, an array of 256.  ART has four sizes of fixed capacity;
// here a list or a bitmap has room for its children only, because most nodes have two or three and
// memory, not insertion, is what limits a trie of every position.  Finding a child takes two vector
// comparisons per seven children of a list (with SSE2), a bit count in a bitmap, or one load.
//
//     0  last: 4   the tagged_position of the latest key that passed
//     4  kind: 1   1                   2 to 32            33 to 246               255
//                  path node           list node          bitmap node             full node
//     5            length - 1: 1       entries of         7 prefix counts: 1      (3 unused)
//                  child: 4            key byte: 1        bitmap: 8 x 4           children: 256 x 4
//                                      child: 4           children: 4 each
//
// A path is a run of 1 to 256 bytes that all keys below it share; at depth d they are the block's
// bytes from position last + d on.  The kind of a list or a bitmap is its number of children, which
// are sorted by key byte.  A prefix count is the number of children in the words before a bitmap's
// word; the first word, always 0, has none.  Numbers are little-endian and unaligned.
#pragma once

#include "common/bytes.h"

#include <bit>
#include <cassert>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace quarnex {

constexpr bool is_leaf(u32 child)
{
    return (child & 1) != 0;
}
constexpr u32 tagged_position(u32 pos)
{
    return pos << 1 | 1;
}
constexpr u32 position_of(u32 tagged)
{
    return tagged >> 1;
}

inline constexpr usize child_size = 4;

// The head of every node.

inline constexpr usize kind_at = 4;
inline constexpr u8 path_kind = 1;
inline constexpr u32 max_list_children = 32;
inline constexpr u32 max_bitmap_children = 246;
inline constexpr u8 full_kind = 255;

inline u32 last_of(const u8* node)
{
    return load_u32(node);
}
inline void set_last(u8* node, u32 tagged)
{
    store_u32(node, tagged);
}

// A path node.

inline constexpr u32 path_size = 10;
inline constexpr usize path_length_at = 5;
inline constexpr usize path_child_at = 6;

inline u32 path_length(const u8* node)
{
    return u32{node[path_length_at]} + 1;
}
inline void set_path_length(u8* node, u32 length)
{
    assert(length >= 1 && length <= 256);
    node[path_length_at] = static_cast<u8>(length - 1);
}

// A list node.

inline constexpr usize list_at = 5;
inline constexpr usize entry_size = 1 + child_size;

constexpr u32 list_size(u32 entries)
{
    return static_cast<u32>(list_at + entries * entry_size);
}
inline u8* list_entry(u8* node, u32 index)
{
    return node + list_at + index * entry_size;
}
inline u8* child_of_entry(u8* entry)
{
    return entry + 1;
}
inline void set_entry(u8* entry, u8 key, u32 child)
{
    *entry = key;
    store_u32(child_of_entry(entry), child);
}

/// The first entry whose key byte is not less than `key`, or the end.
inline u8* find_entry(u8* node, u8 key)
{
    u8* entry = list_entry(node, 0);
    const u8* const end = list_entry(node, node[kind_at]);
    while (entry != end && *entry < key) entry += entry_size;
    return entry;
}

/// Bytes past a list node that find_list_child() may read.
inline constexpr usize list_overread = 32;

#if defined(__SSE2__)

/// The child of `key`; null if there is none.  Compares seven entries at once, so that small nodes
/// take no branch that depends on their content.
inline u8* find_list_child(u8* node, u8 key)
{
    constexpr u32 group = 7;
    constexpr u32 keys_of_group = 0x42108421; // one bit per key byte
    const __m128i wanted = _mm_set1_epi8(static_cast<char>(key));
    u8* first = list_entry(node, 0);
    for (u32 left = node[kind_at];; left -= group, first += group * entry_size) {
        const auto* const halves = reinterpret_cast<const __m128i*>(first);
        const __m128i low = _mm_cmpeq_epi8(_mm_loadu_si128(halves), wanted);
        const __m128i high = _mm_cmpeq_epi8(_mm_loadu_si128(halves + 1), wanted);
        const u32 equal = static_cast<u32>(_mm_movemask_epi8(low)) |
                          static_cast<u32>(_mm_movemask_epi8(high)) << 16;
        const u32 keys = left < group ? (1U << left * entry_size) - 1 : UINT32_MAX;
        const u32 found = equal & keys & keys_of_group;
        if (found != 0) return child_of_entry(first + std::countr_zero(found));
        if (left <= group) return nullptr;
    }
}

#else

inline u8* find_list_child(u8* node, u8 key)
{
    u8* const entry = find_entry(node, key);
    const bool found = entry != list_entry(node, node[kind_at]) && *entry == key;
    return found ? child_of_entry(entry) : nullptr;
}

#endif

// A bitmap node.

inline constexpr usize prefix_counts_at = 4; // plus a word's index, from 1 on
inline constexpr usize bitmap_at = 12;
inline constexpr usize bitmap_word_size = 4;
inline constexpr usize bitmap_word_bits = 32;
inline constexpr usize bitmap_words = 256 / bitmap_word_bits;
inline constexpr usize bitmap_children_at = bitmap_at + bitmap_words * bitmap_word_size;
static_assert(bitmap_children_at == 44);

constexpr u32 bitmap_size(u32 children)
{
    return static_cast<u32>(bitmap_children_at + children * child_size);
}
inline u8* bitmap_word(u8* node, u8 key)
{
    return node + bitmap_at + key / bitmap_word_bits * bitmap_word_size;
}
constexpr u32 bitmap_bit(u8 key)
{
    return 1U << key % bitmap_word_bits;
}

/// Number of bits set.  (std::popcount() compiles to a library call on processors without an
/// instruction for it.)
constexpr u32 count_bits(u32 word)
{
    word -= word >> 1 & 0x55555555;
    word = (word & 0x33333333) + (word >> 2 & 0x33333333);
    return ((word + (word >> 4)) & 0x0F0F0F0F) * 0x01010101 >> 24;
}

inline bool is_marked(u8* node, u8 key)
{
    return (load_u32(bitmap_word(node, key)) & bitmap_bit(key)) != 0;
}

/// The place of the child of `key`, existing or to be inserted.
inline u8* bitmap_child(u8* node, u8 key)
{
    const usize word = key / bitmap_word_bits;
    const u32 in_words_before = word == 0 ? 0 : node[prefix_counts_at + word];
    const u32 in_word = count_bits(load_u32(bitmap_word(node, key)) & (bitmap_bit(key) - 1));
    return node + bitmap_children_at + (in_words_before + in_word) * child_size;
}

/// Sets the bit of `key`, and counts it in the prefix counts of later words.
inline void mark(u8* node, u8 key)
{
    u8* const word = bitmap_word(node, key);
    store_u32(word, load_u32(word) | bitmap_bit(key));
    for (usize later = key / bitmap_word_bits + 1; later < bitmap_words; ++later) {
        ++node[prefix_counts_at + later];
    }
}

// A full node.  A child of 0 stands for none.

inline constexpr usize full_children_at = 8;
inline constexpr u32 full_size = full_children_at + 256 * child_size;

inline u8* full_child(u8* node, u8 key)
{
    return node + full_children_at + key * child_size;
}

/// The child of `key` in any node but a path; null if there is none.
[[gnu::always_inline]] inline u8* find_child(u8* node, u8 key)
{
    const u32 kind = node[kind_at];
    if (kind <= max_list_children) return find_list_child(node, key);
    if (kind != full_kind) return is_marked(node, key) ? bitmap_child(node, key) : nullptr;
    u8* const child = full_child(node, key);
    return load_u32(child) != 0 ? child : nullptr;
}

} // namespace quarnex
