// pipeline/notices.h - what file_reader and file_writer report
//
// All reports are made on the thread that calls the reader or writer, in file order.
#pragma once

#include "common/types.h"
#include "pipeline/status.h"

namespace quarnex {

inline constexpr u64 no_block = UINT64_MAX;

/// A failure or damage.
struct notice {
    status what;
    u64 block = no_block;
    u64 offset = 0; // in the .qrx file
    u64 wanted = 0; // with `got`: as in qrx_event of qrx.h
    u64 got = 0;
    int cause = 0; // errno, or the error number of a callback
};

/// How a reader handles damage.
struct damage_rules {
    bool keeps_damaged = false; // report damage without failing, and put zeros in its place
    bool searches = false;      // search for records after damage
};

/// Callbacks of a reader or writer; each may be null.
struct listener {
    void (*tell)(void* context, const notice& found) = nullptr;
    /// `done` is the offset reached in the original, `total` its size (0 if unknown).  Returns
    /// false to cancel.
    bool (*advance)(void* context, u64 done, u64 total) = nullptr;
    void* context = nullptr;

    /// Reports a notice and returns its status.
    status report(const notice& found) const
    {
        if (tell != nullptr) tell(context, found);
        return found.what;
    }
    /// Reports progress; returns status::cancelled if the callback cancels.
    status report_progress(u64 done, u64 total) const
    {
        return advance == nullptr || advance(context, done, total) ? status::done
                                                                   : status::cancelled;
    }
};

} // namespace quarnex
