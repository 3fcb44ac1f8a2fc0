// tool/presets.h - the presets -1 to -9
#pragma once

#include <array>

namespace tool {

/// The cell (method and level) of each preset.  From one preset to the next, files get smaller and
/// compression slower.  No other cell beats one of these in ratio, compression speed and
/// decompression speed at once; of cells that are close in the first two, the one that decompresses
/// faster was chosen (22 over 31, 33 over 43, 37 over 47).
///
/// The README has their ratios and speeds.
inline constexpr std::array<int, 10> preset_cells{0, 11, 21, 22, 32, 33, 36, 37, 38, 58};

inline constexpr int default_preset = 5;

} // namespace tool
