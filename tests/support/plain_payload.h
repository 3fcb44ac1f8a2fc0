// support/plain_payload.h - what an encoder writes, beside what the plain one writes
#pragma once

#include "support/codec_runs.h"

#include <gtest/gtest.h>
#include <string>

namespace quarnex::test {

/// Expects that `block`, of the shape `name`, is encoded as `plain` says, and decoded again.
inline void expect_plain_payload(const bytes& block, const codec_parameters& parameters,
                                 const bytes& plain, const std::string& name)
{
    const bytes payload = encode(block, parameters);
    ASSERT_TRUE(payload == plain) << block.size() << " bytes of " << name << ", hash bits "
                                  << parameters.hash_bits << ", chain bits "
                                  << parameters.chain_bits << ", context bits "
                                  << int{parameters.lit_ctx_bits};
    if (payload.size() == block.size()) return;
    ASSERT_TRUE(decode(payload, block.size(), parameters) == block);
}

/// Calls `check` for blocks of all shapes and all sizes to 300, with hash bits, chain bits and the
/// shape's name.
template <class Check>
void for_all_small_blocks(u32 seed, Check check)
{
    for (const shape& form : all_shapes()) {
        for (u32 size = 0; size <= 300; ++size) {
            ASSERT_NO_FATAL_FAILURE(check(form.make(size, size * 7 + seed),
                                          static_cast<i32>(5 + size % 14),
                                          static_cast<i32>(1 + size % 8), form.name));
        }
    }
}

/// Calls `check` for blocks that are hard for the priced parses, with their names: matches beyond
/// all windows that end with the block, and tries with nodes of many children.
template <class Check>
void for_all_hard_blocks(Check check)
{
    for (const usize period : {1U, 2U, 300U, 5000U}) {
        bytes block = find_shape("random").make(period, period);
        while (block.size() < 12000) block.push_back(block[block.size() - period]);
        ASSERT_NO_FATAL_FAILURE(check(block, "period " + std::to_string(period)));
    }
    for (const u32 symbols : {30U, 34U, 60U, 245U, 248U, 256U}) {
        random_source random(symbols);
        bytes block(9000);
        for (u8& byte : block) byte = static_cast<u8>(random.below(symbols));
        while (block.size() < 18000) {
            // Copies of two and more bytes.
            const u32 from = random.below(9000);
            const u32 len = 2 + random.below(12);
            for (u32 i = 0; i < len; ++i) block.push_back(block[from + i]);
        }
        ASSERT_NO_FATAL_FAILURE(check(block, std::to_string(symbols) + " symbols"));
    }
}

} // namespace quarnex::test
