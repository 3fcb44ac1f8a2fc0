#include "frontend/walk.h"

#include "frontend/path.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace quarnex {
namespace {

bool fits_path_buffer(const std::string& name)
{
    return name.size() < path_buffer_bytes;
}

file_identity find_identity(const std::string& name)
{
    const auto status = find_status(name.c_str());
    return status ? status->identity : file_identity{};
}

/// Returns the offset in `root` of the path below the destination: the last component, or nothing
/// if that is "..", which would lead out of the destination.
usize relative_start(const std::string& root)
{
    const usize last = last_component(root);
    return root.compare(last, std::string::npos, "..") == 0 ? root.size() + 1 : last;
}

/// Returns the path of `name` below the destination.
std::string relative_part(const std::string& name, usize start)
{
    return start < name.size() ? name.substr(start) : "";
}

} // namespace

dir_walk::dir_walk(const std::string& root, const file_identity& excluded)
    : relative_start_(relative_start(root)), excluded_(excluded)
{
    open(root);
}

dir_walk dir_walk::in_place(const std::string& root, const file_identity& destination)
{
    dir_walk walk(root, destination);
    walk.relative_start_ = join_paths(root, "").size();
    walk.in_place_ = true;
    return walk;
}

void dir_walk::open(const std::string& directory)
{
    std::vector<std::string> names = list_directory(directory.c_str());
    std::sort(names.rbegin(), names.rend());
    levels_.push_back({directory, std::move(names)});
}

std::optional<walk_entry> dir_walk::next()
{
    while (!levels_.empty()) {
        const auto name = next_name();
        if (!name) {
            levels_.pop_back();
            continue;
        }
        const auto kind = find_kind(*name);
        if (!kind) continue;
        if (*kind == file_kind::directory && levels_.size() < max_levels) open(*name);
        return walk_entry{*name, relative_part(*name, relative_start_), *kind, in_place_};
    }
    return {};
}

/// Returns the next name of the deepest directory, or nothing at its end.
std::optional<std::string> dir_walk::next_name()
{
    level& deepest = levels_.back();
    if (deepest.names.empty()) return {};
    const std::string name = join_paths(deepest.directory, deepest.names.back());
    deepest.names.pop_back();
    return name;
}

/// Returns the kind of `name`, or nothing if it is skipped.
std::optional<file_kind> dir_walk::find_kind(const std::string& name) const
{
    if (!fits_path_buffer(name)) return {};
    const auto status = find_status(name.c_str());
    if (!status) return {};
    if (status->kind != file_kind::directory) return status->kind;
    if (status->identity == excluded_ || is_link(name.c_str())) return {};
    return file_kind::directory;
}

walker::walker(std::span<const std::string> names, const std::string& destination)
    : names_(names), destination_(find_identity(destination))
{
    if (!names.empty() && !fits_path_buffer(names.front())) names_ = {};
}

std::optional<walk_entry> walker::next()
{
    auto entry = subtree_.next();
    while (!entry && !names_.empty()) {
        entry = start(names_.front());
        names_ = names_.subspan(1);
    }
    return entry;
}

/// Starts the walk of one name of the list and returns its first entry: the name itself, except for
/// the destination.
std::optional<walk_entry> walker::start(const std::string& name)
{
    const auto status = find_status(name.c_str());
    if (!status) {
        std::fprintf(stderr, "%s: %s\n", name.c_str(), std::strerror(errno));
        return {};
    }
    if (status->identity == destination_) {
        subtree_ = dir_walk::in_place(name, destination_);
        return subtree_.next();
    }
    if (status->kind == file_kind::directory) subtree_ = dir_walk(name, destination_);
    return walk_entry{name, relative_part(name, relative_start(name)), status->kind};
}

} // namespace quarnex
