// match/ladder.h - the encoders of all methods: from a level to a search to a stream
//
// A method defines its encoders, each a search with a token writer, and lists them by level.
#pragma once

#include "coding/codec_state.h"
#include "common/scratch.h"
#include "match/concepts.h"
#include "match/cost_parse.h"
#include "match/text.h"

#include <optional>
#include <utility>

namespace quarnex {

template <token_writer Writer>
block_text text_of(const codec_job& job)
{
    return {job.in_buf, job.in_len, max_dist_of<Writer>};
}

/// The result of an encoder: ends the stream of `writer`, or fails with `failure` if there is none.
template <token_writer Writer>
codec_result finish_stream(const codec_job& job, std::optional<Writer> writer, codec_status failure)
{
    return writer ? shorter_stream(job, writer->finish()) : codec_result{.status = failure};
}

/// Encodes the block of a job with `Search` (levels 0 to 7).  finish() of `out` ends the stream and
/// returns its length.
template <auto Search, token_writer Writer>
codec_result encode_with(const codec_job& job, Writer out)
{
    const search_bits bits{job.parameters.hash_bits, job.parameters.chain_bits};
    return finish_stream<Writer>(job, Search(text_of<Writer>(job), bits, *job.memory, out),
                                 codec_status::no_table);
}

/// Encodes the block of a job with the backward parse (level 8).
template <price_list Prices, token_writer Writer>
codec_result encode_backward(const codec_job& job, Prices prices, Writer out)
{
    return finish_stream<Writer>(
        job, parse_backward(text_of<Writer>(job), job.memory->source, prices, std::move(out)),
        codec_status::no_lists);
}

/// Encodes the block of a job with the forward parse (level 9).
template <price_list Prices, token_writer Writer>
codec_result encode_forward(const codec_job& job, Prices prices, Writer out)
{
    Writer writer = parse_forward(text_of<Writer>(job), job.memory->source, prices, std::move(out));
    return shorter_stream(job, writer.finish());
}

inline constexpr u32 ladder_levels = 10;
/// The level whose encoder serves levels above the last one.
inline constexpr u32 ladder_default = 7;

/// Runs the encoder of the job's level.  The stream of an empty block is empty.
template <class... State>
codec_result encode_level(codec_result (*const (&levels)[ladder_levels])(const codec_job&,
                                                                         State&...),
                          const codec_job& job, State&... state)
{
    if (job.in_len == 0) return {};
    const u32 level = job.parameters.level;
    return levels[level < ladder_levels ? level : ladder_default](job, state...);
}

/// Upper bound on the memory of a level's search for a block of `len` bytes, in bytes: memory() of
/// stateless encoders.
u64 search_memory(const codec_parameters& parameters, u32 len);

/// memory() of encoders with a State per block.
template <class State>
u64 search_and_state_memory(const codec_parameters& parameters, u32 len)
{
    return search_memory(parameters, len) + state_size<State>;
}

} // namespace quarnex
