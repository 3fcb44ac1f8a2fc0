// support/range_streams.h - what a range encoder writes, for the tests of the coders
#pragma once

#include "coding/range_coder.h"
#include "support/shapes.h"

namespace quarnex::test {

/// Room for each stream of these tests.
inline constexpr usize stream_room = 1U << 18;

/// The bytes from the start of a buffer to where the encoder is.
inline bytes written(const bytes& buffer, const range_encoder& to)
{
    return {buffer.data(), static_cast<const u8*>(to.out)};
}

/// The whole stream of what `code` does to an encoder.
template <class Code>
bytes coded(Code code)
{
    bytes buffer(stream_room, 0xEE);
    range_encoder to = start_range_encoder(buffer.data());
    code(to);
    flush(to);
    return written(buffer, to);
}

/// A stream with the zeros that may be read behind it.
inline bytes with_slack(bytes stream)
{
    stream.resize(stream.size() + 8);
    return stream;
}

} // namespace quarnex::test
