#include "tool/targets.h"

#include "tool/process.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <set>
#include <system_error>
#include <utility>
#include <vector>

namespace tool {
namespace {

namespace fs = std::filesystem;

const path suffix = ".qrx";

/// Returns the last component of an operand, which may be "dir/", "." or "..".
path last_component(const path& operand)
{
    path name = operand.lexically_normal();
    if (!name.has_filename()) name = name.parent_path();
    return name.filename();
}

/// Returns the directory below the output directory for the files of an operand.
path name_below_output(const path& operand)
{
    const path base = last_component(operand);
    return base == "." || base == ".." ? path() : base; // ".." would leave the output directory
}

class walker {
  public:
    walker(const session& run, renaming kind, const std::function<int(const work_item&)>& process)
        : run_(run), kind_(kind), process_(process)
    {
    }

    int status() const { return status_; }

    void visit_operand(const path& operand)
    {
        visit(operand, [&] { dispatch_operand(operand); });
    }

  private:
    /// Calls a function for a file or directory.  If memory runs out, only that one fails.
    template <class Function>
    void visit(const path& name, Function function)
    {
        try {
            function();
        } catch (const std::bad_alloc&) {
            fail(name, "out of memory");
        }
    }

    void dispatch_operand(const path& operand)
    {
        file_traits traits;
        if (!is_stdio(operand)) {
            const int error = traits_of(operand, true, traits);
            if (error != 0) {
                fail(operand, system_error_text(error));
                return;
            }
        }
        if (!traits.is_directory)
            visit_file(operand, operand.filename(), false);
        else if (const char* reason = refusal_of_directories())
            fail(operand, reason);
        else
            visit_directory(operand, name_below_output(operand));
    }

    void fail(const path& name, const std::string& text)
    {
        run_.progress.end();
        run_.messages.error(name, text);
        status_ = std::max<int>(status_, exit_failed);
    }

    /// Returns why a directory can't be processed, or null if it can.
    const char* refusal_of_directories() const
    {
        const options& settings = run_.settings;
        const bool has_output = !settings.output.empty();
        if (!settings.recursive) return "is a directory (-r includes directories)";
        if (kind_ == renaming::add_suffix && (settings.to_stdout || has_output))
            return "is a directory (-c and -o take one file)";
        if (!has_output || is_stdio(settings.output)) return nullptr;
        return settings.what == command::verify ? "is a directory (--against takes one file)"
                                                : "is a directory (-o takes one file)";
    }

    /// Processes the entries of a directory, sorted by name.  They are listed first, since outputs
    /// may be created among them.
    void visit_directory(const path& directory, const path& relative)
    {
        std::error_code error;
        std::vector<fs::directory_entry> entries;
        for (fs::directory_iterator entry(directory, error);
             !error && entry != fs::directory_iterator(); entry.increment(error))
            entries.push_back(*entry);
        if (error) fail(directory, error.message());
        std::sort(entries.begin(), entries.end());
        for (const fs::directory_entry& entry : entries)
            visit(entry.path(), [&] { visit_entry(entry, relative / entry.path().filename()); });
    }

    void visit_entry(const fs::directory_entry& entry, const path& relative)
    {
        std::error_code error;
        const fs::file_status found = entry.symlink_status(error);
        if (error) {
            fail(entry.path(), error.message());
        } else if (fs::is_regular_file(found)) {
            visit_file(entry.path(), relative, true);
        } else if (fs::is_directory(found)) {
            visit_directory(entry.path(), relative);
        } else {
            run_.messages.note(entry.path(), "not a regular file, skipped");
        }
    }

    /// True if the command has a second file for each operand.
    bool has_targets() const
    {
        switch (run_.settings.what) {
        case command::test:
        case command::list:
        case command::info:
        case command::cat:
            return false;
        default:
            return true;
        }
    }

    /// `relative` is the name below the output directory.
    void visit_file(const path& source, const path& relative, bool was_found)
    {
        const options& settings = run_.settings;
        work_item item{source, {}};
        const bool is_nameless = is_stdio(source) && settings.output.empty();
        if (!settings.output.empty())
            item.target = is_stdio(settings.output) ? path() : settings.output;
        else if (!settings.to_stdout && !is_nameless && has_targets()) {
            const path base = settings.directory.empty() ? source : settings.directory / relative;
            if (!rename(base, was_found, item.target)) {
                refuse_suffix(source, was_found);
                return;
            }
            if (is_taken(item.target)) {
                fail(source, "has the same output as another source: " + printable(item.target));
                return;
            }
        } else if (was_found && has_suffix(source) != (kind_ == renaming::remove_suffix)) {
            return;
        }
        status_ = std::max(status_, process_(item));
    }

    /// True if an earlier source has this target: -C collects sources of several directories in
    /// one.
    bool is_taken(const path& target)
    {
        return !run_.settings.directory.empty() &&
               !targets_.insert(comparable_name(target.lexically_normal())).second;
    }

    bool rename(const path& base, bool was_found, path& target) const
    {
        const bool adds = kind_ == renaming::add_suffix;
        target = base;
        if (adds) {
            target += suffix;
            return !has_suffix(base) || (run_.settings.force && !was_found);
        }
        target.replace_extension();
        return has_suffix(base);
    }

    void refuse_suffix(const path& source, bool was_found)
    {
        const bool adds = kind_ == renaming::add_suffix;
        const char* text = adds ? "already ends in .qrx, skipped" : "doesn't end in .qrx, skipped";
        if (was_found)
            run_.messages.note(source, text);
        else
            fail(source, text);
    }

    const session& run_;
    renaming kind_;
    const std::function<int(const work_item&)>& process_;
    std::set<path> targets_; // with -C
    int status_ = exit_good;
};

} // namespace

bool has_suffix(const path& name)
{
    return name.has_stem() && name.extension() == suffix;
}

int for_each_item(const session& run, renaming kind,
                  const std::function<int(const work_item&)>& process)
{
    walker walk(run, kind, process);
    if (run.settings.names.empty()) walk.visit_operand("-");
    for (const path& name : run.settings.names) walk.visit_operand(name);
    return walk.status();
}

int for_each_operand(const session& run, const std::function<int(const path&)>& process)
{
    int status = exit_good;
    std::set<path> names;
    const auto fail = [&](const path& name, const char* text) {
        run.progress.end();
        run.messages.error(name, text);
        status = std::max<int>(status, exit_failed);
    };
    for (const path& name : run.settings.names) {
        try {
            if (!run.settings.directory.empty() && !names.insert(name.filename()).second) {
                fail(name, "has the same output as another file");
                continue;
            }
            status = std::max(status, process(name));
        } catch (const std::bad_alloc&) {
            fail(name, "out of memory");
        }
    }
    return status;
}

bool may_create(const session& run, const path& target, const file_traits* source, bool& replaces)
{
    file_traits existing;
    replaces = false;
    const int error = traits_of(target, false, existing);
    if (error == ENOENT) return true;
    if (error != 0) {
        run.progress.end();
        run.messages.error(target, system_error_text(error));
        return false;
    }
    file_traits followed = existing;
    traits_of(target, true, followed);
    const char* reason = nullptr;
    if (followed.is_directory)
        reason = "is a directory";
    else if (!followed.is_regular && !followed.is_link)
        reason = "exists and isn't a regular file";
    else if (source != nullptr && followed.is_same_file(*source))
        reason = "is the input file";
    run.progress.end();
    if (reason == nullptr && !run.settings.force &&
        !ask_on_terminal("qrx: " + printable(target) + " exists; overwrite it (y or n)? "))
        reason = "exists (-f overwrites)";
    if (reason == nullptr) {
        replaces = true;
        return true;
    }
    run.messages.error(target, reason);
    return false;
}

bool make_directory_of(const session& run, const path& source, const path& target)
{
    const path& top = run.settings.directory;
    if (top.empty()) return true;
    const auto fail = [&](const path& name, const std::string& text) {
        run.progress.end();
        run.messages.error(name, text);
        return false;
    };
    std::error_code error;
    fs::create_directories(top, error);
    if (error) return fail(top, error.message());
    // Pairs of a directory and the one it is like; the lowest ones come first.
    std::vector<std::pair<path, path>> missing;
    path model = source.parent_path();
    for (path name = target.parent_path();
         name.has_relative_path() && !fs::is_directory(name, error);
         name = name.parent_path(), model = model.parent_path())
        missing.emplace_back(name, model);
    for (; !missing.empty(); missing.pop_back()) {
        const auto& [name, like] = missing.back();
        if (const int failed = create_directory_like(name, like); failed != 0)
            return fail(name, system_error_text(failed));
    }
    return true;
}

bool may_remove(const session& run, const work_item& item)
{
    if (!run.settings.removes_source) return true;
    file_traits found;
    const char* reason = nullptr;
    if (is_stdio(item.source))
        reason = "--rm needs a file name";
    else if (item.target.empty())
        reason = "--rm needs an output file";
    else if (traits_of(item.source, false, found) != 0)
        return true;        // opening it reports the reason
    else if (found.is_link) // removing a link or one of several names wouldn't remove the file
        reason = "is a symbolic link, skipped because of --rm";
    else if (!found.is_regular)
        reason = "isn't a regular file, skipped because of --rm";
    else if (found.links > 1 && !run.settings.force)
        reason = "has other hard links, skipped because of --rm (-f permits it)";
    if (reason == nullptr) return true;
    run.progress.end();
    run.messages.error(item.source, reason);
    return false;
}

int remove_source(const session& run, const path& source, const file_traits& traits)
{
    file_traits now;
    const int error = traits_of(source, true, now);
    std::string reason;
    if (error != 0)
        reason = system_error_text(error);
    else if (!now.is_same_version(traits))
        reason = "changed while qrx ran";
    else if (const int removed = remove_file(source); removed != 0)
        reason = system_error_text(removed);
    if (reason.empty()) return exit_good;
    run.messages.error(source, "not removed: " + reason);
    return exit_failed;
}

} // namespace tool
