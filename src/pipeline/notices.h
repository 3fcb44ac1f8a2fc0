// pipeline/notices.h - what file_reader and file_writer report
//
// All reports come from the thread that calls the reader or the writer, in the order of the file.
#pragma once

#include "common/types.h"
#include "pipeline/status.h"

namespace quarnex {

inline constexpr u64 no_block = UINT64_MAX;

/// A failure, or damage found.
struct notice {
    status what;
    u64 block = no_block;
    u64 offset = 0; // in the .qrx file
    u64 wanted = 0;
    u64 got = 0;
    int cause = 0; // errno or the value of a callback
};

/// Callbacks of a reader or writer; each may be null.
struct listener {
    void (*tell)(void* context, const notice& found) = nullptr;
    /// `done` of `total` bytes of the original are complete; total is 0 if it is unknown.
    /// Returning false cancels.
    bool (*advance)(void* context, u64 done, u64 total) = nullptr;
    void* context = nullptr;

    /// Reports a notice and returns its status.
    status report(const notice& found) const
    {
        if (tell != nullptr) tell(context, found);
        return found.what;
    }
    /// Reports progress; returns status::cancelled if that cancels.
    status report_progress(u64 done, u64 total) const
    {
        return advance == nullptr || advance(context, done, total) ? status::done
                                                                   : status::cancelled;
    }
};

} // namespace quarnex
