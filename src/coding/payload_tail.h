// coding/payload_tail.h - the end of a payload, with zeros after it
//
// A decoder loads whole words and checks only once in a while whether the payload has ended.  While
// Reach bytes are left, it reads them in the caller's buffer.  Then it continues in a copy of the
// rest, which is followed by Reach zeros, so that it neither reads past the caller's buffer nor
// needs a second form of its loop.
#pragma once

#include "coding/codec.h"

#include <algorithm>
#include <cassert>
#include <cstring>

namespace quarnex {

/// The last bytes of a payload.  `Reach` is an upper bound of the bytes that a decoder reads from
/// one check to the next.
template <u32 Reach>
class payload_tail {
  public:
    explicit payload_tail(const codec_job& job)
        : size_(std::min(job.in_len, Reach)), start_(job.in_buf + (job.in_len - size_))
    {
    }
    payload_tail(const payload_tail&) = delete;
    payload_tail& operator=(const payload_tail&) = delete;

    /// Returns whether the decoder reads the copy.
    bool entered() const { return entered_; }

    /// Returns where the byte at `in` can be read together with the Reach - 1 bytes after it: at
    /// `in` or, from now on, in the copy.  In the payload, `in` must not be past its end.
    const u8* settle(const u8* in)
    {
        return entered_ || (in <= start_ && size_ == Reach) ? in : enter(in);
    }

    /// Makes the copy and returns where it has the byte at `in`, one of the last Reach bytes or the
    /// end of the payload.  Out of line: called once per payload.
    [[gnu::cold, gnu::noinline]] const u8* enter(const u8* in)
    {
        assert(!entered_ && in >= start_ && in <= start_ + size_);
        std::copy_n(start_, size_, bytes_);
        std::memset(bytes_ + size_, 0, Reach);
        entered_ = true;
        return bytes_ + (in - start_);
    }

    /// Returns the last position that needs no call of settle(), or, in the copy, the end.
    const u8* limit() const { return entered_ ? end() : start_; }

    /// Returns the payload's end, in the copy once that is entered.
    const u8* end() const { return (entered_ ? bytes_ : start_) + size_; }

  private:
    u32 size_;        // of the payload's part that can be entered
    const u8* start_; // of that part in the payload
    bool entered_ = false;
    u8 bytes_[2 * Reach];
};

} // namespace quarnex
