// match/ladder.h - what the encoders of all methods have in common: from a level to a stream
//
// A method names its encoders, each a search with its token writer, and lists them by level.  A job
// is a block_job; this folder knows no more of it than is used here, shorter_stream() and
// report_no_memory() included.
#pragma once

#include "match/concepts.h"
#include "match/cost_parse.h"
#include "match/text.h"

#include <optional>
#include <utility>

namespace quarnex {

/// Encodes the block of a job with what `Search` finds, written by `out`, whose finish() ends the
/// stream and gives its length.  Returns the length of the stream, or of the block that took its
/// place, or -1 without memory for the search.
template <auto Search, class Job, token_writer Writer>
i32 encode_with(const Job& job, Writer out)
{
    const search_bits bits{job.parameters.hash_bits, job.parameters.chain_bits};
    std::optional<Writer> written =
        Search(block_text{job.in_buf, job.in_len, longest_dist<Writer>}, bits, out);
    return written ? shorter_stream(job, written->finish()) : -1;
}

/// Encodes the block of a job as the backward parse chooses, by `prices`.  Returns what
/// encode_with() returns; without memory for the match lists it reports that.
template <class Job, price_list Prices, token_writer Writer>
i32 encode_backward(const Job& job, Prices prices, Writer out)
{
    std::optional<Writer> written =
        parse_backward(block_text{job.in_buf, job.in_len, longest_dist<Writer>}, std::move(prices),
                       std::move(out));
    return written ? shorter_stream(job, written->finish()) : report_no_memory(job);
}

/// Encodes the block of a job as the forward parse chooses, by `prices`.  Returns the length of the
/// stream, or of the block that took its place.
template <class Job, price_list Prices, token_writer Writer>
i32 encode_forward(const Job& job, Prices prices, Writer out)
{
    Writer written = parse_forward(block_text{job.in_buf, job.in_len, longest_dist<Writer>},
                                   std::move(prices), std::move(out));
    return shorter_stream(job, written.finish());
}

inline constexpr u32 ladder_levels = 10;
/// What a level above the last one searches like.
inline constexpr u32 ladder_default = 7;

/// Runs the encoder of the job's level.  Returns its result, or 0 for an empty block.
template <class Job, class... State>
i32 encode_level(i32 (*const (&levels)[ladder_levels])(const Job&, State&...), const Job& job,
                 State&... state)
{
    if (job.in_len == 0) return 0;
    const u32 level = job.parameters.level;
    return levels[level < ladder_levels ? level : ladder_default](job, state...);
}

} // namespace quarnex
