// support/paths.h - converts between slashes and the system's path separators
#pragma once

#include "frontend/system.h"

#include <algorithm>
#include <string>

namespace quarnex::test {

/// Converts slashes to the system's separators.
inline std::string native(std::string path)
{
    std::replace(path.begin(), path.end(), '/', path_separator);
    return path;
}

/// Converts the system's separators to slashes.
inline std::string with_slashes(std::string path)
{
    std::replace(path.begin(), path.end(), path_separator, '/');
    return path;
}

/// Returns a name of `length` bytes for the absolute `path`, by repeating its first separator.
inline std::string stretched(std::string path, usize length)
{
    const usize missing = length - path.size();
    return path.insert(path.find(path_separator), missing, path_separator);
}

} // namespace quarnex::test
