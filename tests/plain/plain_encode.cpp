#include "plain/plain_encode.h"

#include "plain/m1_plain.h"
#include "plain/m2_plain.h"
#include "plain/m3_plain.h"
#include "plain/m4_plain.h"
#include "plain/m5_plain.h"

#include <cstdlib>

namespace quarnex::test {

bytes plain_encode(const bytes& block, const codec_parameters& parameters)
{
    if (block.empty()) return {};
    const u32 level = parameters.level;
    const auto hash_bits = static_cast<u32>(parameters.hash_bits);
    const auto chain_bits = static_cast<u32>(parameters.chain_bits);
    switch (parameters.method) {
    case 1:
        return m1_plain_encode(block, level, hash_bits, chain_bits);
    case 2:
        return m2_plain_encode(block, level, hash_bits, chain_bits);
    case 3:
        return m3_plain_encode(block, level, hash_bits, chain_bits);
    case 4:
        return m4_plain_encode(block, level, parameters.lit_ctx_bits, hash_bits, chain_bits);
    case 5:
        return m5_plain_encode(block, level, hash_bits, chain_bits);
    default:
        std::abort();
    }
}

} // namespace quarnex::test
