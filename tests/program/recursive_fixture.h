// program/recursive_fixture.h - compresses and restores directories with -r
#pragma once

#include "support/file_tree.h"
#include "support/program_fixture.h"

#include <algorithm>

namespace quarnex::test {

using names = std::vector<std::string>;

/// Returns a random short name of characters in `alphabet`.
inline std::string random_name(random_source& random, const std::string& alphabet)
{
    std::string name;
    for (u32 n = 1 + random.below(6); n != 0; --n)
        name += alphabet[random.below(static_cast<u32>(alphabet.size()))];
    return name == "." || name == ".." ? "..." : name;
}

/// Returns a random tree of about 200 files and directories, up to ten levels deep; some of both
/// are empty.
inline file_tree random_tree(const std::string& alphabet)
{
    random_source random(17);
    names directories{""};
    file_tree tree;
    for (u32 i = 0; i < 200; ++i) {
        const std::string& parent = directories[random.below(static_cast<u32>(directories.size()))];
        const std::string name = parent + random_name(random, alphabet);
        if (tree.contains(name) || tree.contains(name + "/")) continue;
        if (random.below(4) == 0 && std::count(name.begin(), name.end(), '/') < 9) {
            tree[name + "/"] = {};
            directories.push_back(name + "/");
        } else {
            const shape& kind = all_shapes()[random.below(static_cast<u32>(all_shapes().size()))];
            tree[name] = kind.make(random.below(1U << random.below(18)), i);
        }
    }
    return tree;
}

/// Parameterized by number of workers.
class recursive : public program_with_threads {
  protected:
    program_result compress(const names& list, const std::string& destination = "out",
                            const names& options = {}) const
    {
        return walk("-10", list, destination, options);
    }
    program_result restore(const names& list, const std::string& destination = "back",
                           const names& options = {}) const
    {
        return walk("-d", list, destination, options);
    }

    void plant(const std::string& name, const bytes& content) const
    {
        test::plant(dir / name, content);
    }
    /// Creates files, each with its own name as content, and directories.
    void plant_all(const names& planted) const
    {
        for (const std::string& name : planted) plant(name, bytes_of(name));
    }
    void link(const std::string& target, const std::string& name) const
    {
        std::filesystem::create_symlink(target, dir / name);
    }

    file_tree tree(const std::string& directory) const { return tree_below(dir / directory); }
    names listed(const std::string& directory) const { return names_below(dir / directory); }

    /// Returns whether `name` is the compressed form of `content`, which is incompressible.
    bool holds(const std::string& name, const bytes& content) const
    {
        const auto file = parse_qrx(get(name));
        if (!file || file->header.original_size != content.size()) return false;
        const auto payloads = payloads_in_order(*file);
        bytes held;
        if (!payloads) return false;
        for (const bytes& payload : *payloads)
            held.insert(held.end(), payload.begin(), payload.end());
        return held == content;
    }

    /// Compresses and restores a tree and expects it unchanged.
    void expect_rebuilt(const file_tree& original) const
    {
        for (const auto& [name, content] : original) plant("tree/" + name, content);
        ASSERT_EQ(tree("tree"), original);
        ASSERT_GT(original.size(), 180U);

        expect_silent_success(compress({"tree"}));
        names expected{"tree/"};
        for (const auto& [name, content] : original)
            expected.push_back("tree/" + (name.back() == '/' ? name : name + ".qrx"));
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(listed("out"), expected);

        expect_silent_success(restore({"out/tree"}));
        EXPECT_EQ(listed("back/tree"), names_below(dir / "tree"));
        EXPECT_TRUE(tree("back/tree") == original);
    }

  private:
    program_result walk(const char* mode, const names& list, const std::string& destination,
                        const names& options) const
    {
        names arguments{mode, GetParam(), "-b1", "-r"};
        for (const names* part : {&options, &list})
            arguments.insert(arguments.end(), part->begin(), part->end());
        arguments.push_back(destination);
        return run(arguments);
    }
};

} // namespace quarnex::test
