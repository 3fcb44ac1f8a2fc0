// method1/m1_encoder.cpp - the ladder of method 1: which search a level runs
#include "match/hash_search.h"
#include "method1/m1_codec.h"
#include "method1/m1_tokens.h"

namespace quarnex {
namespace {

static_assert(search_reads_past <= in_slack);

using m1_writer = m1_tokens<m1_min_match(0)>;

/// Runs `search` with an empty hash table over the block; a stream that is not shorter gives way
/// to the block itself.  Returns -1 without memory for the table.
template <class Search>
i32 m1_encode(const block_job& job, Search search)
{
    fast_hash_table table(static_cast<u32>(job.parameters.hash_bits));
    if (!table) return -1;
    const block_text text{job.in_buf, job.in_len};
    m1_writer out = search(text, table, m1_writer(job));
    const u32 len = out.finish(job.in_len);
    return len != 0 ? static_cast<i32>(len) : store_block(job);
}

i32 m1_encode_greedy(const block_job& job)
{
    return m1_encode(job, search_greedy<inserts::nothing, m1_writer>);
}

i32 m1_encode_greedy_ins(const block_job& job)
{
    return m1_encode(job, search_greedy<inserts::inside_match, m1_writer>);
}

i32 m1_encode_lazy(const block_job& job)
{
    return m1_encode(job, search_lazy<m1_writer>);
}

i32 m1_run_encoder(const block_job& job, void* /*state*/)
{
    switch (job.parameters.level) {
    case 0:
        return m1_encode_greedy(job);
    case 1:
        return m1_encode_greedy_ins(job);
    case 2:
        return m1_encode_lazy(job);
    default:
        return -1;
    }
}

} // namespace

const codec_entry m1_encoder{no_state, m1_run_encoder, release_nothing};

} // namespace quarnex
