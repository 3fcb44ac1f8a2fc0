// frontend/file_lookup.h - looks up kinds and identities of files for tests
#pragma once

#include "frontend/system.h"

#include <cstdlib>
#include <optional>
#include <string>

namespace quarnex::test {

inline std::optional<file_kind> kind_of(const std::string& name)
{
    const auto status = find_status(name.c_str());
    return status ? std::optional(status->kind) : std::nullopt;
}

inline file_identity identity_of(const std::string& name)
{
    const auto status = find_status(name.c_str());
    if (!status) std::abort();
    return status->identity;
}

} // namespace quarnex::test
