// method1/m1_encoder.cpp - encoder of method 1: the search that each level runs
//
// A level is a search of match/ combined with m1_tokens; levels 8 and 9 also price its tokens.
// Time and memory are those of the search; the token writer adds O(n) time and no memory.
#include "coding/min_match.h"
#include "match/hash_search.h"
#include "match/ladder.h"
#include "match/ring_search.h"
#include "method1/m1_codec.h"
#include "method1/m1_prices.h"
#include "method1/m1_tokens.h"

namespace quarnex {
namespace {

static_assert(search_reads_past <= in_slack && trie_reads_past <= in_slack);

using m1_writer = m1_tokens<static_min_match(0)>;

template <auto Search>
codec_result m1_encode(const codec_job& job)
{
    return encode_with<Search>(job, m1_writer(job));
}

constexpr auto m1_encode_greedy = m1_encode<search_greedy<inserts::nothing, m1_writer>>;
constexpr auto m1_encode_greedy_ins = m1_encode<search_greedy<inserts::inside_match, m1_writer>>;
constexpr auto m1_encode_lazy = m1_encode<search_lazy<m1_writer>>;
constexpr auto m1_encode_pair = m1_encode<search_pairs<0, m1_writer>>;
constexpr auto m1_encode_ways = m1_encode<search_rings<m1_writer>>;

codec_result m1_encode_sa(const codec_job& job)
{
    constexpr u32 min_match = static_min_match(8);
    return encode_backward(job, m1_prices<min_match>(), m1_tokens<min_match>(job));
}

codec_result m1_encode_trie(const codec_job& job)
{
    constexpr u32 min_match = static_min_match(9);
    return encode_forward(job, m1_prices<min_match>(), m1_tokens<min_match>(job));
}

constexpr codec_result (*m1_levels[ladder_levels])(const codec_job&){
    m1_encode_greedy, m1_encode_greedy_ins, m1_encode_lazy, m1_encode_pair, m1_encode_ways,
    m1_encode_ways,   m1_encode_ways,       m1_encode_ways, m1_encode_sa,   m1_encode_trie,
};

codec_result m1_encode_block(const codec_job& job, void* /*state*/)
{
    return encode_level(m1_levels, job);
}

} // namespace

const codec_entry m1_encoder{no_state, m1_encode_block, release_nothing, search_memory};

} // namespace quarnex
