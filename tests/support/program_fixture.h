// support/program_fixture.h - runs the program in a new directory
#pragma once

#include "support/mib.h"
#include "support/program.h"
#include "support/qrx_file.h"
#include "support/system_differences.h"
#include "support/temp_dir.h"

#include <cstring>
#include <gtest/gtest.h>

namespace quarnex::test {

/// Names in the tests and in the program's messages are relative to the directory.
class program_fixture : public testing::Test {
  protected:
    program_fixture() { settings.work_dir = dir.path(); }

    program_result run(const std::vector<std::string>& arguments) const
    {
        return run_program(arguments, settings);
    }

    void put(const std::string& name, const bytes& content) const
    {
        write_file(dir / name, content);
    }
    bytes get(const std::string& name) const { return read_file(dir / name); }
    bool exists(const std::string& name) const { return file_exists(dir / name); }

    temp_dir dir;
    program_options settings;
};

/// Parameterized by number of workers, as an option ("-p0", ...).
class program_with_threads : public program_fixture,
                             public testing::WithParamInterface<const char*> {};

inline std::string thread_option_name(const testing::TestParamInfo<const char*>& info)
{
    return info.param + 1; // without the dash
}

/// Expects status 0 and no output.
inline void expect_silent_success(const program_result& result)
{
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
}

/// Expects the end by a failure with a code: one line on standard error that names the file, and
/// `out` on standard output.
inline void expect_fatal_error(const program_result& result, const std::string& name,
                               const std::string& code_and_text, const std::string& out = "")
{
    EXPECT_EQ(result.out, out);
    EXPECT_EQ(result.err, "quarnex: " + name + ": error " + code_and_text + "\n");
    EXPECT_EQ(result.status, status_of_abnormal_end);
}

/// The error text for opening a directory as a file.
inline const std::string is_a_directory = std::strerror(errno_of_directory);

inline bytes random_data(usize size, u64 seed = 1)
{
    return find_shape("random").make(size, seed);
}

} // namespace quarnex::test
