// support/temp_dir.h - temporary files for tests
#pragma once

#include "support/shapes.h"

#include <string>

namespace quarnex::test {

/// A new empty directory, removed with its content at the end.  It is in a RAM-backed directory if
/// the system has one.
class temp_dir {
  public:
    temp_dir();
    ~temp_dir();
    temp_dir(const temp_dir&) = delete;
    temp_dir& operator=(const temp_dir&) = delete;

    const std::string& path() const { return path_; }
    /// Returns the path of `name` in the directory.
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

void write_file(const std::string& name, const bytes& content);
/// Returns the content of a file; empty if it is missing.
bytes read_file(const std::string& name);
bool file_exists(const std::string& name);

} // namespace quarnex::test
