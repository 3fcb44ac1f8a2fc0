// method4/m4_encoder.cpp - the encoder of method 4: the match finder of each level
#include "coding/min_match.h"
#include "match/hash_search.h"
#include "match/ladder.h"
#include "match/ring_search.h"
#include "method4/m4_codec.h"
#include "method4/m4_prices.h"
#include "method4/m4_tokens.h"

namespace quarnex {
namespace {

static_assert(search_reads_past <= in_slack && trie_reads_past <= in_slack);

using m4_writer = m4_tokens<min_match(0)>;

template <auto Search>
codec_result m4_encode(const codec_job& job, m4_enc_state& models)
{
    models.start(job.in_len);
    return encode_with<Search>(job, m4_writer(job.in_buf, m4_symbol_writer(job, models)));
}

constexpr auto m4_encode_greedy = m4_encode<search_greedy<inserts::nothing, m4_writer>>;
constexpr auto m4_encode_lazy = m4_encode<search_lazy<m4_writer>>;
constexpr auto m4_encode_pair = m4_encode<search_pairs<0, m4_writer>>;
constexpr auto m4_encode_bucket = m4_encode<search_rings<m4_writer>>;

template <u32 MinMatch>
m4_prices<MinMatch> m4_prices_for(const codec_job& job, const m4_enc_state& models)
{
    return {job.in_buf, m4_context_mask(job.parameters.lit_ctx_bits), models};
}

codec_result m4_encode_sa(const codec_job& job, m4_enc_state& models)
{
    constexpr u32 shortest = min_match(8);
    models.start(job.in_len);
    return encode_backward(job, m4_prices_for<shortest>(job, models),
                           m4_tokens<shortest>(job.in_buf, m4_symbol_writer(job, models)));
}

codec_result m4_encode_trie(const codec_job& job, m4_enc_state& models)
{
    constexpr u32 shortest = min_match(9);
    models.start(job.in_len);
    return encode_forward(job, m4_prices_for<shortest>(job, models),
                          m4_tokens<shortest>(job.in_buf, m4_symbol_writer(job, models)));
}

constexpr codec_result (*m4_levels[ladder_levels])(const codec_job&, m4_enc_state&){
    m4_encode_greedy, m4_encode_lazy,   m4_encode_lazy,   m4_encode_pair, m4_encode_bucket,
    m4_encode_bucket, m4_encode_bucket, m4_encode_bucket, m4_encode_sa,   m4_encode_trie,
};

codec_result m4_encode_block(const codec_job& job, void* state)
{
    return encode_level(m4_levels, job, *static_cast<m4_enc_state*>(state));
}

} // namespace

const codec_entry m4_encoder{m4_encoder_init, m4_encode_block, m4_encoder_release,
                             search_and_state_memory<m4_enc_state>};

} // namespace quarnex
