// program/command_line_fixture.h - a directory with a valid file, for tests of the command line
#pragma once

#include "support/file_tree.h"
#include "support/program_fixture.h"

namespace quarnex::test {

class command_line : public program_fixture {
  protected:
    command_line() { put("good", data); }

    /// Returns whether `name` is the compressed form of the good file.
    bool is_compressed(const std::string& name) const
    {
        const auto file = parse_qrx(get(name));
        return file && file->header.original_size == data.size() && file->records.size() == 1 &&
               file->records[0].payload == data;
    }

    const bytes data = random_data(1000);
};

class destination : public command_line {};

class plain_names : public command_line {
  protected:
    plain_names() { put("other", data); }
};

} // namespace quarnex::test
