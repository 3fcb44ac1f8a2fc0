// support/range_streams.h - streams of a range encoder, for tests of the coders
#pragma once

#include "coding/range_coder.h"
#include "support/shapes.h"

namespace quarnex::test {

/// Capacity for each stream of these tests, in bytes.
inline constexpr usize stream_room = 1U << 18;

/// Returns the bytes that the encoder has written to `buffer`.
inline bytes written(const bytes& buffer, const range_encoder& encoder)
{
    return {buffer.data(), static_cast<const u8*>(encoder.out)};
}

/// Calls `code` with an encoder, flushes it and returns the stream.
template <class Code>
bytes coded(Code code)
{
    bytes buffer(stream_room, 0xEE);
    range_encoder encoder = start_range_encoder(buffer.data());
    code(encoder);
    flush(encoder);
    return written(buffer, encoder);
}

/// Returns a stream followed by the zeros that a decoder may read past its end.
inline bytes with_zeros(bytes stream)
{
    stream.resize(stream.size() + 8);
    return stream;
}

} // namespace quarnex::test
