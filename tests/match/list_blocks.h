// The blocks with which both ways to list the matches of level 8 are compared with plain lists.
#pragma once

#include "support/shapes.h"

#include <gtest/gtest.h>
#include <string>

namespace quarnex::test {

/// Calls check(block, name) for all shapes and sizes up to 300.
template <class Check>
void for_short_blocks(Check check)
{
    for (const auto& shape : all_shapes())
        for (u32 size = 1; size <= 300; ++size)
            ASSERT_NO_FATAL_FAILURE(check(shape.make(size, size), shape.name));
}

/// Calls check(block, name) for thousands of small blocks of few symbols.
template <class Check>
void for_blocks_of_few_symbols(Check check)
{
    random_source random(1);
    for (u32 round = 0; round < 4000; ++round) {
        bytes block(1 + random.below(120));
        const u32 symbols = 1 + random.below(5);
        for (u8& byte : block) byte = static_cast<u8>(random.below(symbols) * 85);
        ASSERT_NO_FATAL_FAILURE(check(block, std::string("few symbols")));
    }
}

/// Calls check(block, name) for blocks of 30000 bytes of all shapes.
template <class Check>
void for_longer_blocks(Check check)
{
    for (const auto& shape : all_shapes())
        ASSERT_NO_FATAL_FAILURE(check(shape.make(30000, 2), shape.name));
}

} // namespace quarnex::test
