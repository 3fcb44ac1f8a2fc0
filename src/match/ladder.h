// match/ladder.h - what the encoders of all methods share: from a level to a stream
//
// A method names its encoders, each a search with its token writer, and lists them by level.
#pragma once

#include "coding/codec.h"
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
    return {job.in_buf, job.in_len, longest_dist<Writer>};
}

/// The result of an encoder whose writer is `written`, or nothing for want of `missing`.
template <token_writer Writer>
codec_result finish_stream(const codec_job& job, std::optional<Writer> written,
                           codec_status missing)
{
    return written ? shorter_stream(job, written->finish()) : codec_result{.status = missing};
}

/// Encodes the block of a job with what `Search` finds, written by `out`, whose finish() ends the
/// stream and gives its length.
template <auto Search, token_writer Writer>
codec_result encode_with(const codec_job& job, Writer out)
{
    const search_bits bits{job.parameters.hash_bits, job.parameters.chain_bits};
    return finish_stream<Writer>(job, Search(text_of<Writer>(job), bits, *job.memory, out),
                                 codec_status::no_table);
}

/// Encodes the block of a job as the backward parse chooses, by `prices`.
template <price_list Prices, token_writer Writer>
codec_result encode_backward(const codec_job& job, Prices prices, Writer out)
{
    return finish_stream<Writer>(
        job,
        parse_backward(text_of<Writer>(job), job.memory->source, std::move(prices), std::move(out)),
        codec_status::no_lists);
}

/// Encodes the block of a job as the forward parse chooses, by `prices`.
template <price_list Prices, token_writer Writer>
codec_result encode_forward(const codec_job& job, Prices prices, Writer out)
{
    Writer written =
        parse_forward(text_of<Writer>(job), job.memory->source, std::move(prices), std::move(out));
    return shorter_stream(job, written.finish());
}

inline constexpr u32 ladder_levels = 10;
/// What a level above the last one searches like.
inline constexpr u32 ladder_default = 7;

/// Runs the encoder of the job's level.  An empty block has an empty stream.
template <class... State>
codec_result encode_level(codec_result (*const (&levels)[ladder_levels])(const codec_job&,
                                                                         State&...),
                          const codec_job& job, State&... state)
{
    if (job.in_len == 0) return {};
    const u32 level = job.parameters.level;
    return levels[level < ladder_levels ? level : ladder_default](job, state...);
}

/// Bytes that the search of a level takes at most for a block of `len` bytes: memory() of stateless
/// encoders.
u64 search_memory(const codec_parameters& parameters, u32 len);

/// memory() of encoders with a State.
template <class State>
u64 search_and_state_memory(const codec_parameters& parameters, u32 len)
{
    return search_memory(parameters, len) + sizeof(State);
}

} // namespace quarnex
