// frontend/walk_fixture.h - a directory tree for tests of walks
#pragma once

#include "frontend/walk.h"
#include "support/file_tree.h"
#include "support/paths.h"

#include <gtest/gtest.h>

namespace quarnex::test {

using names = std::vector<std::string>;

/// Returns the relative path of an entry, followed by "/" for a directory and "?" for anything else
/// that is not a file.
inline std::string shown(const walk_entry& entry)
{
    const std::string relative = with_slashes(entry.relative);
    switch (entry.kind) {
    case file_kind::regular:
        return relative;
    case file_kind::directory:
        return relative + "/";
    case file_kind::other:
        break;
    }
    return relative + "?";
}

class recursive_walk : public testing::Test {
  protected:
    recursive_walk() { std::filesystem::create_directory(dir / "out"); }

    void plant_all(const names& planted) const
    {
        for (const std::string& name : planted) plant(dir / name);
    }
    void link(const std::string& target, const std::string& name) const
    {
        std::filesystem::create_symlink(target, dir / name);
    }

    /// Returns the path of `name` in the directory, with the system's separators.
    std::string path(const std::string& name) const { return native(dir / name); }

    /// Returns the entries of a walk over names in the directory.
    names walk(names list, const std::string& destination = "out") const
    {
        for (std::string& name : list) name = path(name);
        walker inputs(list, path(destination));
        names found;
        while (const auto entry = inputs.next()) found.push_back(shown(*entry));
        return found;
    }

    temp_dir dir;
};

} // namespace quarnex::test
