// pipeline/source_file.h - reading, and the messages that both drivers give about their files
#pragma once

#include "common/platform.h"
#include "pipeline/output_file.h"

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

/// Creates a destination.  Null, and a message on standard error, if that fails.
std::shared_ptr<output_file> create_destination(const std::string& name);

} // namespace quarnex
