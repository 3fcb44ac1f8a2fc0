#include "pipeline/parameters.h"

#include "format/filters.h"

#include <algorithm>

namespace quarnex {

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

void cap_block_size(file_parameters& parameters)
{
    constexpr u16 ring_block_mb = 16;
    const u8 level = parameters.codec.level;
    if (level >= 4 && level <= 7)
        parameters.block_mb = std::min(parameters.block_mb, ring_block_mb);
}

void settle_parameters(file_parameters& parameters, const level_defaults& defaults)
{
    codec_parameters& codec = parameters.codec;
    codec.level = std::min(codec.level, last_level);
    cap_block_size(parameters);
    if (codec.chain_bits == 0) codec.chain_bits = defaults.chain_bits[codec.level];
    if (codec.hash_bits < min_hash_bits) codec.hash_bits = defaults.hash_bits[codec.level];
    parameters.filter_flags &= 0x7F;
}

bool are_settled(const file_parameters& parameters)
{
    const codec_parameters& codec = parameters.codec;
    file_parameters capped = parameters;
    cap_block_size(capped);
    return is_method(codec.method) && codec.level <= last_level &&
           codec.lit_ctx_bits <= max_lit_ctx_bits && codec.hash_bits >= min_hash_bits &&
           codec.hash_bits <= max_hash_bits && codec.chain_bits >= 1 &&
           codec.chain_bits <= max_chain_bits && parameters.filter_flags <= filter_delta &&
           parameters.block_mb == capped.block_mb && parameters.block_mb <= max_block_mb;
}

} // namespace quarnex
