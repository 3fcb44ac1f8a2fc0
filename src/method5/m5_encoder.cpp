// method5/m5_encoder.cpp - the encoder of method 5: the match finder of each level
#include "match/hash_search.h"
#include "match/ladder.h"
#include "match/ring_search.h"
#include "method5/m5_codec.h"
#include "method5/m5_prices.h"
#include "method5/m5_tokens.h"

namespace quarnex {
namespace {

static_assert(search_reads_past <= in_slack && trie_reads_past <= in_slack);

using m5_writer = m5_tokens<min_match(0)>;

template <auto Search>
codec_result m5_encode(const codec_job& job, m5_encoder_state& state)
{
    return encode_with<Search>(job, m5_writer(job, state));
}

constexpr auto m5_encode_greedy = m5_encode<search_greedy<inserts::inside_match, m5_writer>>;
constexpr auto m5_encode_lazy = m5_encode<search_lazy<m5_writer>>;
constexpr auto m5_encode_pair = m5_encode<search_pairs<1, m5_writer>>;
constexpr auto m5_encode_bucket = m5_encode<search_rings<m5_writer>>;

codec_result m5_encode_suffix(const codec_job& job, m5_encoder_state& state)
{
    constexpr u32 shortest = min_match(8);
    return encode_backward(job, m5_prices<shortest>(job.in_buf, state.model),
                           m5_tokens<shortest>(job, state));
}

codec_result m5_encode_trie(const codec_job& job, m5_encoder_state& state)
{
    constexpr u32 shortest = min_match(9);
    return encode_forward(job, m5_prices<shortest>(job.in_buf, state.model),
                          m5_tokens<shortest>(job, state));
}

constexpr codec_result (*m5_levels[ladder_levels])(const codec_job&, m5_encoder_state&){
    m5_encode_greedy, m5_encode_lazy,   m5_encode_lazy,   m5_encode_pair,   m5_encode_bucket,
    m5_encode_bucket, m5_encode_bucket, m5_encode_bucket, m5_encode_suffix, m5_encode_trie,
};

codec_result m5_encode_block(const codec_job& job, void* state)
{
    return encode_level(m5_levels, job, *static_cast<m5_encoder_state*>(state));
}

} // namespace

const codec_entry m5_encoder{init_state<m5_encoder_state>, m5_encode_block,
                             release_state<m5_encoder_state>,
                             search_and_state_memory<m5_encoder_state>};

} // namespace quarnex
