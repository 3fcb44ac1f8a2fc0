// match/wide_blocks.h - blocks with branches of many children and with keys of 256 bytes, where the
// trie doesn't name the nearest position
#pragma once

#include "support/shapes.h"

#include <algorithm>

namespace quarnex::test {

/// `count` copies of a key of `depth` bytes, followed by `children` different bytes in random
/// order, and then by any of them.  If the branch is `direct`, the key without its last byte is
/// followed by others too, so that there is a branch one byte above it.
inline bytes wide_branch(u32 depth, u32 children, u32 count, bool direct, u64 seed)
{
    random_source random(seed);
    bytes key(depth);
    for (u32 k = 0; k < depth; ++k) key[k] = static_cast<u8>(k % 251 + k / 251);
    bytes next(256);
    for (u32 k = 0; k < 256; ++k) next[k] = static_cast<u8>(k);
    for (u32 k = 256; k > 1; --k) std::swap(next[k - 1], next[random.below(k)]);
    bytes block{9};
    for (u32 k = 0; k < count; ++k) {
        if (direct && k % 16 == 3) {
            block.insert(block.end(), key.begin(), key.end() - 1);
            block.push_back(static_cast<u8>(200 + k / 16 % 50));
        }
        block.insert(block.end(), key.begin(), key.end());
        block.push_back(next[k < children ? k : random.below(children)]);
        if (random.below(4) == 0) block.push_back(static_cast<u8>(random.below(256)));
    }
    return block;
}

/// `count` strings of 255 common bytes and a few different ones, in any order: keys of 256 bytes
/// below a fork.  The bytes before and after them vary.
inline bytes forked_keys(u32 count, u64 seed)
{
    random_source random(seed);
    const u32 extra = random.below(4);
    bytes key(253 + extra); // 253 to 256
    for (u8& byte : key) byte = static_cast<u8>(random.below(seed % 2 == 0 ? 256 : 2));
    bytes block{9};
    const u32 ends = 1 + random.below(4);
    for (u32 k = 0; k < count; ++k) {
        const u32 start = random.below(3) == 0 ? random.below(4) : 0;
        block.insert(block.end(), key.begin() + start, key.end());
        for (u32 tail = random.below(4); tail != 0; --tail)
            block.push_back(static_cast<u8>(random.below(ends)));
    }
    return block;
}

} // namespace quarnex::test
