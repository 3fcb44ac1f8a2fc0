// coding/decoder_forms.h - the decoders of methods 1 and 2, each in four forms
//
// Both are made of shifts by numbers that have just been found, so they are compiled twice: for
// processors with bit instructions and for all others.  And the shortest match is a constant.
//
// A method gives a template `Decoding<MinMatch, Bits>` with an always-inlined function decode(job),
// which decodes the block of a job.
#pragma once

#include "coding/codec.h"
#include "coding/min_match.h"
#include "common/bit_instructions.h"

namespace quarnex {

template <template <u32, class> class Decoding, class Bits>
[[gnu::always_inline]] inline codec_result decode_by_level(const codec_job& job)
{
    const bool low = static_min_match(job.parameters.level) == 4;
    return low ? Decoding<4, Bits>::decode(job) : Decoding<3, Bits>::decode(job);
}

template <template <u32, class> class Decoding>
QUARNEX_BIT_INSTRUCTIONS codec_result decode_fast(const codec_job& job)
{
    return decode_by_level<Decoding, fast_bits>(job);
}

/// Decodes a block on any processor.
template <template <u32, class> class Decoding>
codec_result decode_portable(const codec_job& job, void* /*state*/)
{
    return decode_by_level<Decoding, portable_bits>(job);
}

/// Decodes a block in the best way that this processor has.
template <template <u32, class> class Decoding>
codec_result decode_best(const codec_job& job, void* state)
{
    return has_bit_instructions() ? decode_fast<Decoding>(job)
                                  : decode_portable<Decoding>(job, state);
}

} // namespace quarnex
