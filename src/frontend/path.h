// frontend/path.h - splits and joins paths
#pragma once

#include "frontend/system.h"

#include <string>

namespace quarnex {

/// Returns the offset of the last component of `path`: after the last of the path_delimiters.
inline usize last_component(const std::string& path)
{
    const usize delimiter = path.find_last_of(path_delimiters);
    return delimiter == std::string::npos ? 0 : delimiter + 1;
}

/// Returns `directory` and `relative` joined by one separator.
inline std::string join_paths(const std::string& directory, const std::string& relative)
{
    const bool separated = !directory.empty() && directory.back() == path_separator;
    return separated ? directory + relative : directory + path_separator + relative;
}

} // namespace quarnex
