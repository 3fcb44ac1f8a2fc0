// coding/decoder_forms.h - the four instances of a decoder with static codes (methods 1 and 2)
//
// Both decoders spend their time on shifts by counts that were just decoded, which BMI2 and LZCNT
// make cheaper.  Each is therefore compiled for processors with these extensions and for all
// others, and for both values of the shortest match, a constant of the loop.
//
// A method supplies a template `Decoding<MinMatch, Bits>` with an always-inlined static function
// decode(job), which decodes the block of a job.
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

/// run() of a decoder for any processor.
template <template <u32, class> class Decoding>
codec_result decode_portable(const codec_job& job, void* /*state*/)
{
    return decode_by_level<Decoding, portable_bits>(job);
}

/// run() of a decoder that uses bit instructions if this processor has them.
template <template <u32, class> class Decoding>
codec_result decode_best(const codec_job& job, void* state)
{
    return has_bit_instructions() ? decode_fast<Decoding>(job)
                                  : decode_portable<Decoding>(job, state);
}

} // namespace quarnex
