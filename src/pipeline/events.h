// pipeline/events.h - the events that the engine reports to its observer
//
// The engine prints nothing and never ends the process.  The thread that meets an event reports it
// immediately; the observer may end the process in the call.
#pragma once

#include "coding/codec.h"
#include "common/types.h"

namespace quarnex {

enum class direction : u8 { compress, decompress };

enum class event_kind : u8 {
    source_unopened,       // cause
    source_unread,         // cause
    source_shrank,         // the source became shorter while it was read; not a failure
    destination_uncreated, // cause
    destination_unwritten, // cause
    too_many_destinations, // wanted: limit; got: file descriptor
    thread_unstarted,      // name is empty
    header_short,          // cause, 0 at end of file
    not_qrx,
    corrupt,       // invalid header values or record heads
    payload_short, // wanted, got, cause
    block_short,   // block, wanted, got: too few bytes decoded, the rest is zeros; not a failure
    block_uncoded, // block, codec_error: a codec had no memory
    no_memory,     // no memory for a buffer
};

struct event {
    event_kind kind;
    int cause = 0;         // errno, 0 if there is none
    const char* name = ""; // of the file concerned, valid during the call
    u32 block = 0;
    u64 wanted = 0;
    u64 got = 0;
    direction mode = direction::compress;
    codec_status codec_error = codec_status::done; // for block_uncoded
    bool on_worker = false;                        // reported by a worker or the writer
};

/// Callbacks of an engine; each may be null.  All threads of the engine call tell(), possibly
/// concurrently.
struct observer {
    void (*tell)(void* context, const event& happened) = nullptr;
    /// Called by the reading thread before every block except the first: `done` of `total` bytes of
    /// the source have been read.  Returning false cancels the file.
    bool (*advance)(void* context, u64 done, u64 total) = nullptr;
    /// Called by the reading thread if `destination` can't be created as a new file, mostly because
    /// it exists.  Returning true replaces it, false skips the source.
    bool (*replace)(void* context, const char* source, const char* destination) = nullptr;
    /// Called by the reading thread with the descriptor of each destination that it has created or
    /// emptied.
    void (*created)(void* context, int descriptor) = nullptr;
    void* context = nullptr;
};

} // namespace quarnex
