// support/exact_ends.h - expectations of codec_result::exact_end, for all decoders
#pragma once

#include "support/codec_runs.h"

#include <gtest/gtest.h>

namespace quarnex::test {

/// The decoders of a method: that of the codec table and, if there is one, the portable one.
using codec_entries = std::vector<const codec_entry*>;

/// Returns whether a payload ends exactly.  All `decoders` must agree, whatever follows it.
inline bool ends_exactly(const codec_entries& decoders, const bytes& payload, usize length,
                         const codec_parameters& parameters)
{
    u32 exact = 0;
    for (const codec_entry* decoder : decoders) {
        const bytes after(decoder == decoders[0] ? 4096 : 0, 0xA5);
        const codec_result result =
            run_decoder(*decoder, payload, length, parameters, after).result;
        EXPECT_TRUE(result.length == length || !result.exact_end);
        exact += result.exact_end ? 1 : 0;
    }
    EXPECT_TRUE(exact == 0 || exact == decoders.size()) << exact;
    return exact != 0;
}

/// Expects an exact end of the stream of a block, and none of the stream without its last byte,
/// with further bytes, or for a block of another length.
inline void expect_exact_end(const codec_entries& decoders, const bytes& stream, usize length,
                             const codec_parameters& parameters)
{
    const auto exact = [&](const bytes& payload, usize block_length) {
        return ends_exactly(decoders, payload, block_length, parameters);
    };
    EXPECT_TRUE(exact(stream, length)) << length;
    EXPECT_FALSE(exact({stream.begin(), stream.end() - 1}, length)) << length;
    for (const u8 next : {u8{0}, u8{0xEB}, u8{0xFF}})
        EXPECT_FALSE(exact(joined({stream, {next}}), length)) << length;
    EXPECT_FALSE(exact(joined({stream, bytes(4)}), length)) << length;
    // A last match passes the end of a block by 5 bytes at most.
    for (const usize difference : {usize{6}, usize{7}, usize{20}, length / 2}) {
        if (difference < 6) continue;
        EXPECT_FALSE(exact(stream, length + difference)) << length;
        if (difference >= length) continue;
        EXPECT_FALSE(exact(stream, length - difference)) << length;
    }
}

/// Encodes a block and expects an exact end of its stream.  Returns false if the block is stored.
inline bool expect_exact_end_of_block(const codec_entries& decoders, const bytes& block,
                                      const codec_parameters& parameters)
{
    const bytes payload = encode(block, parameters);
    if (payload.size() == block.size()) return false;
    expect_exact_end(decoders, payload, block.size(), parameters);
    return true;
}

/// Calls `check` for blocks of all shapes: of all lengths to 140 and around the ends of the
/// windows of the optimal parsers.
template <class Check>
void for_all_edge_lengths(u32 seed, Check check)
{
    std::vector<usize> lengths;
    for (usize length = 2; length <= 140; ++length) lengths.push_back(length);
    for (const usize edge : {513U, 1537U, 3585U, 4096U, 7681U})
        for (usize length = edge - 2; length <= edge + 2; ++length) lengths.push_back(length);
    for (const shape& form : all_shapes()) {
        SCOPED_TRACE(form.name);
        for (const usize length : lengths) check(form.make(length, length + seed));
    }
}

} // namespace quarnex::test
