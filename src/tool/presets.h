// tool/presets.h - the presets -1 to -9
#pragma once

#include <array>

namespace tool {

/// The cell (method and level) of each preset, along the measured front of speed and ratio: no
/// other cell is both faster and smaller.
inline constexpr std::array<int, 10> preset_cells{0, 10, 20, 30, 31, 33, 35, 37, 38, 58};

inline constexpr int default_preset = 5;

} // namespace tool
