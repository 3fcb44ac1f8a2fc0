// tool/presets.h - the presets -1 to -9
#pragma once

#include <array>

namespace tool {

/// The cell (method and level) of each preset.  From one preset to the next, files get smaller and
/// compression slower.  No other cell beats one of these in ratio, compression speed and
/// decompression speed at once; of cells that are close in the first two, the one that decompresses
/// faster was chosen (22 over 31, 33 over 43, 37 over 47).
///
/// Measured by `qrx bench` with text, tables, an image, a program, a database and XML: 82 MB in 7
/// files, blocks of 32 MiB (16 in -6 and -7), one thread, fastest repetitions in processor time.
/// MB/s of the original; upper bounds in MiB on the memory of one worker thread, and of each one
/// more.
///
///     preset  cell   ratio  compress  decompress   MiB to compress   to decompress
///                               MB/s        MB/s
///       -1     11   .3237       711        3100         128 +  64         96 + 64
///       -2     21   .3032       659        1970         128 +  64         96 + 64
///       -3     22   .2815       408        2260         129 +  65         96 + 64
///       -4     32   .2584       302         983         129 +  65         96 + 64
///       -5     33   .2428       155        1050         160 +  96         96 + 64
///       -6     36   .2242        51        1220         192 + 160         48 + 32
///       -7     37   .2160        29        1310         192 + 160         48 + 32
///       -8     38   .1948       9.0        1350         512 + 448         96 + 64
///       -9     58   .1820       7.5         151         512 + 448         96 + 64
inline constexpr std::array<int, 10> preset_cells{0, 11, 21, 22, 32, 33, 36, 37, 38, 58};

inline constexpr int default_preset = 5;

} // namespace tool
