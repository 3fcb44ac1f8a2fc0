#include "match/ladder.h"

#include <cassert>

namespace quarnex {

u64 search_memory(const codec_parameters& parameters, u32 len)
{
    switch (parameters.level) {
    case 9:
        return nearest_search::memory_for(len);
    case 8:
        return match_list_memory(len);
    default:
        assert(parameters.hash_bits >= 0 && parameters.hash_bits < 62);
        assert(parameters.chain_bits >= 0 && parameters.chain_bits <= 8);
        return u64{sizeof(u32)} *
               ((u64{1} << parameters.hash_bits) + (u64{1} << parameters.chain_bits));
    }
}

} // namespace quarnex
