// pipeline/output_file.h - a destination file while it is being written
#pragma once

#include "common/types.h"
#include "pipeline/displacement_window.h"

#include <cstdio>
#include <memory>
#include <string>

namespace quarnex {

/// The open destination of one file, shared by its driver, its blocks in flight and the writer; the
/// last of them closes it.  Unbuffered: a write that fails is noticed at once, and what has been
/// written stays written whatever becomes of the process.
class output_file {
  public:
    /// Creates the file or empties the one that is there.  Null with errno set on failure.
    static std::shared_ptr<output_file> create(const std::string& name);

    ~output_file();
    output_file(const output_file&) = delete;
    output_file& operator=(const output_file&) = delete;

    /// Writes `size` bytes.  False with errno set if not all of them could be written.
    [[nodiscard]] bool write(const u8* from, usize size);
    /// Moves to `offset` from the file's start.  False with errno set on failure.
    [[nodiscard]] bool seek(u64 offset);
    /// Closes the file.  False with errno set if the system reports a write that failed late.
    [[nodiscard]] bool close();

    const std::string out_name;
    /// The order of the records, when compressing.
    displacement_window window;
    /// The stream, as a message can show it.
    const void* stream_address() const { return stream_; }

  private:
    output_file(std::string name, std::FILE* stream);
    std::FILE* stream_;
};

} // namespace quarnex
