// pipeline/source_file.h - a source file while it is being read
#pragma once

#include <cstdio>
#include <memory>
#include <string>

namespace quarnex {

struct close_stream {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using source_file = std::unique_ptr<std::FILE, close_stream>;

/// Opens a file for reading.  Null, and a message on standard error, if that fails.
source_file open_source(const std::string& name);

/// Whether reading has failed, and not just come to the end; then a message on standard error.
bool has_failed(const source_file& source, const std::string& name);

} // namespace quarnex
