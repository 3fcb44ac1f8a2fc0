// frontend/walk_fixture.h - directories in which walks go about
#pragma once

#include "frontend/walk.h"
#include "support/file_tree.h"
#include "support/paths.h"

#include <gtest/gtest.h>

namespace quarnex::test {

using names = std::vector<std::string>;

/// The relative part of an entry, with "/" behind a directory and "?" behind what is no file
/// either.
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
    void link(const std::string& to, const std::string& name) const
    {
        std::filesystem::create_symlink(to, dir / name);
    }

    /// The path of `name` in the directory, as the system writes it.
    std::string path(const std::string& name) const { return native(dir / name); }

    /// What a walk over names in the directory gives.
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
