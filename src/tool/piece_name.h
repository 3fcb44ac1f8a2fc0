// tool/piece_name.h - names of the pieces of a file: NAME.03of12.qrx
#pragma once

#include "tool/options.h"

namespace tool {

struct piece_name {
    path stem;           // the file's name without ".qrx"
    uint64_t number = 0; // from 1 on; 0 if the name isn't that of a piece
    uint64_t count = 0;
};

/// Returns the name of a piece.  Numbers have as many digits as `count`, so that names sort.
path name_of(const piece_name& piece);

/// Reads the name of a piece, without its directory.
piece_name read_piece_name(const path& name);

} // namespace tool
