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

u32 max_encoders(const file_parameters& parameters, u64 address_bytes)
{
    // A quarter is reserved for other allocations and for fragmentation.  Each encoder has two
    // buffers, and three more are shared.
    const codec_parameters& codec = parameters.codec;
    const u64 block_size = parameters.block_size();
    const u64 room = address_bytes / 4 * 3;
    const u64 shared = 3 * block_size;
    const u64 each =
        2 * block_size + encoder_table[codec.method]->memory(codec, static_cast<u32>(block_size));
    return room < shared + each
               ? 1
               : static_cast<u32>(std::min<u64>((room - shared) / each, UINT32_MAX));
}

} // namespace quarnex
