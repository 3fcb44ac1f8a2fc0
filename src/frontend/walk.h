// frontend/walk.h - enumerates the inputs of a recursive run
//
// The walk visits the names of the command line in order and the trees below directories: depth
// first, a directory before its content, names in byte order.
//
// Each directory is read completely when the walk enters it.  Files that the run creates there
// later are therefore not inputs, and no directory stays open between two entries.
#pragma once

#include "frontend/system.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace quarnex {

/// One file or directory of a walk.
struct walk_entry {
    std::string name;
    std::string relative; // path below the destination
    file_kind kind = file_kind::other;
    bool in_place = false; // outputs are written next to the sources
};

/// Walks the tree below one directory.
///
/// Silently skips entries that can't be looked up or whose path is too long for the system, the
/// directory `excluded`, and links to directories, which could form cycles.
class dir_walk {
  public:
    /// Maximum depth of directories that are read; the content of deeper ones is skipped.
    static constexpr usize max_levels = 100;

    /// Creates a walk without entries.
    dir_walk() = default;
    dir_walk(const std::string& root, const file_identity& excluded);
    /// Walks the destination itself: all paths are relative to it.
    static dir_walk in_place(const std::string& root, const file_identity& destination);

    /// Returns the next entry, or nothing at the end.
    std::optional<walk_entry> next();

  private:
    struct level {
        std::string directory;
        std::vector<std::string> names; // remaining names in reverse order
    };

    void open(const std::string& directory);
    std::optional<std::string> next_name();
    std::optional<file_kind> find_kind(const std::string& name) const;

    usize relative_start_ = 0; // offset of the relative part in each name
    bool in_place_ = false;
    file_identity excluded_;
    std::vector<level> levels_;
};

/// Walks a list of names and the trees below them.
class walker {
  public:
    /// `names` must outlive the walk.  If the first name is too long for the system, the walk is
    /// empty.  The directory `destination` is skipped inside a tree; if it is in the list itself,
    /// it is walked in place.
    walker(std::span<const std::string> names, const std::string& destination);

    /// Returns the next entry, or nothing at the end.  Prints a line on standard error for each
    /// name of the list that can't be looked up.
    std::optional<walk_entry> next();

  private:
    std::optional<walk_entry> start(const std::string& name);

    std::span<const std::string> names_; // remaining names
    file_identity destination_;
    dir_walk subtree_; // below the current name
};

} // namespace quarnex
