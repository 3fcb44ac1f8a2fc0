#include "pipeline/codec_table.h"

#include "match/trie.h"
#include "method1/m1_codec.h"
#include "method2/m2_codec.h"
#include "method3/m3_codec.h"
#include "method4/m4_codec.h"
#include "method5/m5_codec.h"

#include <algorithm>

namespace quarnex {

const std::array<const codec_entry*, 8> encoder_table{nullptr,     &m1_encoder, &m2_encoder,
                                                      &m3_encoder, &m4_encoder, &m5_encoder};
const std::array<const codec_entry*, 8> decoder_table{nullptr,     &m1_decoder, &m2_decoder,
                                                      &m3_decoder, &m4_decoder, &m5_decoder};

level_defaults fit_to_cache(u32 cache_kib)
{
    level_defaults defaults;
    if (cache_kib > 1024) {
        defaults.hash_bits[0] = 15;
        defaults.hash_bits[1] = 17;
    } else if (cache_kib > 512) {
        defaults.hash_bits[0] = 14;
        defaults.hash_bits[1] = 16;
    }
    return defaults;
}

void apply_defaults(file_parameters& parameters, const level_defaults& defaults)
{
    constexpr i32 least_hash_bits = 10;
    parameters.level = std::min(parameters.level, last_level);
    if (parameters.chain_bits == 0) parameters.chain_bits = defaults.chain_bits[parameters.level];
    if (parameters.hash_bits < least_hash_bits) {
        parameters.hash_bits = defaults.hash_bits[parameters.level];
    }
    parameters.filter_flags &= 0x7F;
}

namespace {

/// Bytes that the search of a level takes at the most, besides the block and its stream.
u64 search_bytes(const file_parameters& parameters)
{
    constexpr u64 match_list_bytes = 10; // by position, with what they are made from
    switch (parameters.level) {
    case 9:
        return trie::memory_for(static_cast<u32>(parameters.block_size()));
    case 8:
        return match_list_bytes * parameters.block_size();
    default:
        return u64{sizeof(u32)} << parameters.hash_bits;
    }
}

} // namespace

u32 encoders_with_room(const file_parameters& parameters, u64 addresses)
{
    // A quarter is for all else, and for gaps.  Of buffers there are two for each encoder, and
    // three.
    const u64 room = addresses / 4 * 3;
    const u64 shared = 3 * parameters.block_size();
    const u64 each = 2 * parameters.block_size() + search_bytes(parameters);
    return room < shared + each
               ? 1
               : static_cast<u32>(std::min<u64>((room - shared) / each, UINT32_MAX));
}

} // namespace quarnex
