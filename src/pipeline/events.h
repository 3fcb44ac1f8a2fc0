// pipeline/events.h - what the engine tells its observer
//
// The engine prints nothing and never ends the process.  It tells what happens on the thread that
// met it, before that thread does anything else; an observer may end the process there.
#pragma once

#include "coding/codec.h"
#include "common/types.h"

namespace quarnex {

enum class direction : u8 { compress, decompress };

enum class event_kind : u8 {
    source_unopened,       // cause
    source_unread,         // cause
    source_shrank,         // the source has become shorter while it was read; it goes on
    destination_uncreated, // cause
    destination_unwritten, // cause
    too_many_destinations, // wanted: how many may be open; got: the system's number for the file
    thread_unstarted,      // no name
    header_short,          // cause; 0 at the end of the file
    not_qrx,
    corrupt,       // header and records can't be right
    payload_short, // wanted, got, cause
    block_short,   // block, wanted, got: the decoder produced fewer bytes; it goes on with zeros
    block_uncoded, // block, lack: a codec had no memory
    no_memory,     // for a buffer
};

struct event {
    event_kind kind;
    int cause = 0;         // the system's error number, 0 if there is none
    const char* name = ""; // of the file that it concerns, valid during the call
    u32 block = 0;
    u64 wanted = 0;
    u64 got = 0;
    direction mode = direction::compress;
    codec_status lack = codec_status::done; // of block_uncoded
    bool on_worker = false;                 // told by a worker or the writer
};

/// Functions that an engine calls; each may be null.  tell() is called by all threads of the
/// engine, also at the same time.
struct observer {
    void (*tell)(void* context, const event& happened) = nullptr;
    /// Called now and then by the thread that reads: `done` of `total` bytes of the source have
    /// been read.  False cancels the file.
    bool (*advance)(void* context, u64 done, u64 total) = nullptr;
    void* context = nullptr;
};

} // namespace quarnex
