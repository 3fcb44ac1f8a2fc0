// pipeline/status.h - the outcome of a file
#pragma once

#include "common/types.h"

namespace quarnex {

enum class status : u8 {
    done,
    no_memory,
    no_thread,             // a thread can't be started
    source_unopened,       // the source can't be opened
    read_failed,           // the system reports a read error
    destination_uncreated, // the destination can't be created
    write_failed,          // the system reports a write error
    too_many_files,        // too many files are partly written
    not_qrx,               // the source is not a .qrx file
    truncated,             // the source ends within the header or a payload
    corrupt,               // the source's header and records are inconsistent
    stopped,               // an earlier file failed
    skipped,               // the destination exists and must stay
    cancelled,             // by the observer
    bad_argument,          // an argument is invalid, or a call comes at the wrong time
    over_limit,            // the memory limit is too low
    too_small,             // the destination is too small
    block_short,           // a block decodes to fewer bytes than its length
    inexact_end,           // a payload doesn't end exactly where its block ends
    block_missing,         // a block has no record
    block_repeated,        // a block has more than one record
    trailing_bytes,        // bytes other than a seal follow the last record
    checksum_mismatch,     // the original doesn't match the seal
};
inline constexpr status last_status = status::checksum_mismatch;

} // namespace quarnex
