#include "pipeline/codec_table.h"

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

} // namespace quarnex
