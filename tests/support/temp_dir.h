// support/temp_dir.h - files for tests
#pragma once

#include "support/shapes.h"

#include <string>

namespace quarnex::test {

/// A new empty directory, removed with all in it at the end.  In memory where the system has a
/// RAM-backed folder.
class temp_dir {
  public:
    temp_dir();
    ~temp_dir();
    temp_dir(const temp_dir&) = delete;
    temp_dir& operator=(const temp_dir&) = delete;

    const std::string& path() const { return path_; }
    /// The path of `name` in the directory.
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

void write_file(const std::string& name, const bytes& content);
/// The content of a file; of a missing one, nothing.
bytes read_file(const std::string& name);
bool file_exists(const std::string& name);
bytes to_bytes(const std::string& text);

} // namespace quarnex::test
