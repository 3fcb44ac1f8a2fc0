// frontend/names.h - the names of destinations, and which files are sources
#pragma once

#include "format/container.h"

#include <string>

namespace quarnex {

/// The name of the file that `name` is compressed to.
inline std::string compressed_name(const std::string& name)
{
    return name + file_suffix;
}

/// The name of the file that `name` is restored to: without its suffix, or with ".out" appended.
inline std::string restored_name(const std::string& name)
{
    if (!has_suffix(name.c_str())) return name + ".out";
    return name.substr(0, name.size() - file_suffix_bytes);
}

} // namespace quarnex
