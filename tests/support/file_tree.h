// support/file_tree.h - directory trees
#pragma once

#include "support/temp_dir.h"

#include <filesystem>
#include <map>

namespace quarnex::test {

/// Names with contents; names of directories end in "/" and have no content.
using file_tree = std::map<std::string, bytes>;

/// Returns the tree below a directory, by names relative to it.
inline file_tree tree_below(const std::string& directory)
{
    file_tree tree;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
        const std::string name = entry.path().generic_string();
        const std::string below = name.substr(directory.size() + 1);
        if (entry.is_directory())
            tree[below + "/"] = {};
        else
            tree[below] = read_file(name);
    }
    return tree;
}

inline std::vector<std::string> names_below(const std::string& directory)
{
    std::vector<std::string> names;
    for (const auto& [name, content] : tree_below(directory)) names.push_back(name);
    return names;
}

/// Creates a file, or a directory if the name ends in "/", and the missing parents.
inline void plant(const std::string& name, const bytes& content = {})
{
    std::filesystem::create_directories(std::filesystem::path(name).parent_path());
    if (name.back() != '/') write_file(name, content);
}

/// Returns "d/d/.../d" with `levels` directories.
inline std::string nested_directories(usize levels)
{
    std::string name = "d";
    for (usize level = 1; level < levels; ++level) name += "/d";
    return name;
}

} // namespace quarnex::test
