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
    cancelled,             // by the observer
    bad_argument,          // an argument is out of range, or a call comes at the wrong time
    over_limit,            // more memory is needed than is allowed
    too_small,             // the destination has too little room
    block_short,           // a block decodes to fewer bytes than it has
    inexact_end,           // a payload does not end where its block ends
    block_missing,         // a block has no record
    block_repeated,        // a block has more than one record
    trailing_bytes,        // bytes that are no seal follow the last record
    checksum_mismatch,     // the original doesn't match the seal
};

} // namespace quarnex
