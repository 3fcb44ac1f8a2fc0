// method2/m2_encoder.cpp - encoder of method 2: the search that each level runs
//
// A level is a search of match/ combined with m2_tokens; levels 8 and 9 also price its tokens.
// Time and memory are those of the search; the token writer adds O(n) time and no memory.
#include "coding/min_match.h"
#include "match/hash_search.h"
#include "match/ladder.h"
#include "match/ring_search.h"
#include "method2/m2_codec.h"
#include "method2/m2_prices.h"
#include "method2/m2_tokens.h"

namespace quarnex {
namespace {

static_assert(search_reads_past <= in_slack && trie_reads_past <= in_slack);

using m2_writer = m2_tokens<static_min_match(0)>;

template <auto Search>
codec_result m2_encode(const codec_job& job)
{
    return encode_with<Search>(job, m2_writer(job));
}

constexpr auto m2_encode_l0 = m2_encode<search_greedy<inserts::nothing, m2_writer>>;
constexpr auto m2_encode_l1 = m2_encode<search_greedy<inserts::inside_match, m2_writer>>;
constexpr auto m2_encode_l2 = m2_encode<search_lazy<m2_writer>>;
constexpr auto m2_encode_l3 = m2_encode<search_pairs<0, m2_writer>>;
constexpr auto m2_encode_bucket = m2_encode<search_rings<m2_writer>>;

codec_result m2_encode_sa(const codec_job& job)
{
    constexpr u32 min_match = static_min_match(8);
    return encode_backward(job, m2_prices<min_match>(), m2_tokens<min_match>(job));
}

codec_result m2_encode_trie(const codec_job& job)
{
    constexpr u32 min_match = static_min_match(9);
    return encode_forward(job, m2_prices<min_match>(), m2_tokens<min_match>(job));
}

constexpr codec_result (*m2_levels[ladder_levels])(const codec_job&){
    m2_encode_l0,     m2_encode_l1,     m2_encode_l2,     m2_encode_l3, m2_encode_bucket,
    m2_encode_bucket, m2_encode_bucket, m2_encode_bucket, m2_encode_sa, m2_encode_trie,
};

codec_result m2_encode_block(const codec_job& job, void* /*state*/)
{
    return encode_level(m2_levels, job);
}

} // namespace

const codec_entry m2_encoder{no_state, m2_encode_block, release_nothing, search_memory};

} // namespace quarnex
