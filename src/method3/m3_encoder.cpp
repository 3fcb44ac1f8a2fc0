// method3/m3_encoder.cpp - the encoder of method 3: the match finder of each level
#include "coding/min_match.h"
#include "match/hash_search.h"
#include "match/ladder.h"
#include "match/ring_search.h"
#include "method3/m3_codec.h"
#include "method3/m3_prices.h"
#include "method3/m3_tokens.h"

namespace quarnex {
namespace {

static_assert(search_reads_past <= in_slack && trie_reads_past <= in_slack);

using m3_writer = m3_tokens<min_match(0)>;

template <auto Search>
codec_result m3_encode(const codec_job& job)
{
    m3_encoder_models models(job.in_len);
    return encode_with<Search>(job, m3_writer(job.in_buf, m3_symbol_writer(job, models)));
}

constexpr auto m3_encode_greedy = m3_encode<search_greedy<inserts::nothing, m3_writer>>;
constexpr auto m3_encode_greedy_ins = m3_encode<search_greedy<inserts::inside_match, m3_writer>>;
constexpr auto m3_encode_lazy = m3_encode<search_lazy<m3_writer>>;
constexpr auto m3_encode_pair = m3_encode<search_pairs<0, m3_writer>>;
constexpr auto m3_encode_bucket = m3_encode<search_rings<m3_writer>>;

codec_result m3_encode_sa(const codec_job& job)
{
    constexpr u32 shortest = min_match(8);
    m3_encoder_models models(job.in_len);
    return encode_backward(job, m3_prices<shortest>(job.in_buf, models),
                           m3_tokens<shortest>(job.in_buf, m3_symbol_writer(job, models)));
}

codec_result m3_encode_trie(const codec_job& job)
{
    constexpr u32 shortest = min_match(9);
    m3_encoder_models models(job.in_len);
    return encode_forward(job, m3_prices<shortest>(job.in_buf, models),
                          m3_tokens<shortest>(job.in_buf, m3_symbol_writer(job, models)));
}

constexpr codec_result (*m3_levels[ladder_levels])(const codec_job&){
    m3_encode_greedy, m3_encode_greedy_ins, m3_encode_lazy,   m3_encode_pair, m3_encode_bucket,
    m3_encode_bucket, m3_encode_bucket,     m3_encode_bucket, m3_encode_sa,   m3_encode_trie,
};

codec_result m3_encode_block(const codec_job& job, void* /*state*/)
{
    return encode_level(m3_levels, job);
}

} // namespace

const codec_entry m3_encoder{no_state, m3_encode_block, release_nothing, search_memory};

} // namespace quarnex
