// pipeline/status.h - what becomes of a file
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
    too_many_files,        // too many files have records still to come
    not_qrx,               // no .qrx file
    truncated,             // the source ends within the header or a payload
    corrupt,               // the source contradicts itself
    stopped,               // another file has failed before
    cancelled,             // by the observer
};

} // namespace quarnex
