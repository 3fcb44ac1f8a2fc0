// match/near_blocks.h - blocks in which a nearer match competes with a longer one
#pragma once

#include "support/shapes.h"

namespace quarnex::test {

/// "abcde" at 0 and at `far`, and only "abcd" five bytes before that.
inline bytes far_and_near_block(u32 far)
{
    bytes block = bytes_of("abcdeX");
    for (u32 i = 0; block.size() < far - 5; ++i) block.push_back(static_cast<u8>(0x80 + i));
    const bytes rest = bytes_of("abcdYabcdeZ");
    block.insert(block.end(), rest.begin(), rest.end());
    return block;
}

} // namespace quarnex::test
