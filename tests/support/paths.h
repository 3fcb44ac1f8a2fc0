// support/paths.h - paths as tests write them, with slashes, and as the system does
#pragma once

#include "frontend/system.h"

#include <algorithm>
#include <string>

namespace quarnex::test {

/// A path written with slashes, with the system's separators.
inline std::string native(std::string path)
{
    std::replace(path.begin(), path.end(), '/', path_separator);
    return path;
}

/// A path of the system, written with slashes.
inline std::string with_slashes(std::string path)
{
    std::replace(path.begin(), path.end(), path_separator, '/');
    return path;
}

/// A name of `length` bytes for `path`, which is absolute: its first separator is repeated.
inline std::string stretched(std::string path, usize length)
{
    const usize missing = length - path.size();
    return path.insert(path.find(path_separator), missing, path_separator);
}

} // namespace quarnex::test
