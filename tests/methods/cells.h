// methods/cells.h - the fifty pairs of a method and a level
#pragma once

#include "common/types.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace quarnex::test {

struct cell {
    u8 method;
    u8 level;
};

/// Returns the cells of a range of methods and a range of levels, both inclusive.
inline std::vector<cell> cells_of(u8 first_method, u8 last_method, u8 first_level, u8 last_level)
{
    std::vector<cell> cells;
    for (u8 method = first_method; method <= last_method; ++method)
        for (u8 level = first_level; level <= last_level; ++level) cells.push_back({method, level});
    return cells;
}

/// Returns a name like "m5_level_9".
inline std::string cell_name(const testing::TestParamInfo<cell>& info)
{
    std::string name = "m";
    name += std::to_string(info.param.method);
    name += "_level_";
    name += std::to_string(info.param.level);
    return name;
}

inline void PrintTo(const cell& cell, std::ostream* out)
{
    *out << "method " << int{cell.method} << ", level " << int{cell.level};
}

} // namespace quarnex::test
