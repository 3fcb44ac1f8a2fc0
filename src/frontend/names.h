// frontend/names.h - derives destination names from source names
#pragma once

#include "format/container.h"

#include <string>

namespace quarnex {

/// Returns the name of the compressed form of `name`.
inline std::string compressed_name(const std::string& name)
{
    return name + file_suffix;
}

/// Returns the name of the restored form of `name`: without the suffix, or with ".out" appended if
/// it has none.
inline std::string restored_name(const std::string& name)
{
    if (!has_suffix(name.c_str())) return name + ".out";
    return name.substr(0, name.size() - file_suffix_bytes);
}

} // namespace quarnex
