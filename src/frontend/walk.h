// frontend/walk.h - the inputs of a recursive run
//
// Each name of the command line in turn and, behind a directory, all that is in it: depth first, a
// directory before its content, by the order of the bytes of their names.
//
// A directory is read as a whole when the walk comes to it.  So files that the run itself makes
// there later are no inputs, and nothing is held open between two entries.
#pragma once

#include "frontend/system.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace quarnex {

/// What a walk has come to.
struct walk_entry {
    std::string name;
    std::string relative; // the part of the name that goes below the destination
    file_kind kind = file_kind::other;
    bool in_place = false; // its outputs lie beside it
};

/// The walk below one directory.
///
/// What can't be looked up, or has a name longer than the system takes, is left out without a word;
/// so are the directory `excluded` and links to directories, which could lead around in circles.
class dir_walk {
  public:
    /// Directories that lie in one another and are read; what is in deeper ones is left out.
    static constexpr usize most_levels = 100;

    /// A walk that is used up.
    dir_walk() = default;
    dir_walk(const std::string& root, const file_identity& excluded);
    /// The walk below the destination itself: all parts are relative to it.
    static dir_walk in_place(const std::string& root, const file_identity& destination);

    /// The next entry, or nothing at the end.
    std::optional<walk_entry> next();

  private:
    struct level {
        std::string directory;
        std::vector<std::string> names; // that are still to come, the next one last
    };

    void open(const std::string& directory);
    std::optional<std::string> next_name();
    std::optional<file_kind> find_kind(const std::string& name) const;

    usize relative_start_ = 0; // in all names
    bool in_place_ = false;
    file_identity excluded_;
    std::vector<level> levels_;
};

/// The walk over a list of names.
class walker {
  public:
    /// `names` must outlive the walk.  None of them is an input if the first is longer than the
    /// system takes.  The directory `destination` is not entered where a walk meets it; named in
    /// the list, it is walked in place.
    walker(std::span<const std::string> names, const std::string& destination);

    /// The next entry, or nothing at the end.  A name of the list that can't be an input costs a
    /// line on standard error.
    std::optional<walk_entry> next();

  private:
    std::optional<walk_entry> start(const std::string& name);

    std::span<const std::string> names_; // that are still to come
    file_identity destination_;
    dir_walk below_; // the name before them
};

} // namespace quarnex
