// program/failures_fixture.h - runs of the program that fail
#pragma once

#include "support/program_fixture.h"

#include <filesystem>

namespace quarnex::test {

/// Parameterized by number of workers.
class failures : public program_with_threads {
  protected:
    failures() { std::filesystem::create_directory(dir / "out"); }

    program_result compress(const std::string& name)
    {
        return run({"-10", GetParam(), "-b1", name, "out"});
    }
    program_result restore(const std::string& name) { return run({"-d", GetParam(), name, "out"}); }

    /// Creates `name`, the compressed form of `size` zeros.
    void put_compressed_zeros(const std::string& name, usize size) const
    {
        qrx_file file;
        file.header.original_size = size;
        for (usize at = 0; at < size; at += mib) {
            file.records.push_back({0, m1_run_payload(0, mib)});
        }
        put(name, build_qrx(file));
    }
};

} // namespace quarnex::test
