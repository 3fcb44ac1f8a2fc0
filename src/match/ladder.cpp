#include "match/ladder.h"

namespace quarnex {

u64 search_memory(const codec_parameters& parameters, u32 len)
{
    switch (parameters.level) {
    case 9:
        return trie::memory_for(len);
    case 8:
        return u64{len} * match_list_bytes;
    default:
        return u64{sizeof(u32)} *
               ((u64{1} << parameters.hash_bits) + (u64{1} << parameters.chain_bits));
    }
}

} // namespace quarnex
