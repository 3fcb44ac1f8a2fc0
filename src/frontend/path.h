// frontend/path.h - paths taken apart and put together
#pragma once

#include "frontend/system.h"

#include <string>

namespace quarnex {

/// Where the last component of `path` starts: after the last of the path_part_marks.
inline usize last_part(const std::string& path)
{
    const usize mark = path.find_last_of(path_part_marks);
    return mark == std::string::npos ? 0 : mark + 1;
}

/// The path of `relative` below `directory`.
inline std::string path_below(const std::string& directory, const std::string& relative)
{
    const bool separated = !directory.empty() && directory.back() == path_separator;
    return separated ? directory + relative : directory + path_separator + relative;
}

} // namespace quarnex
