// tool/raw_output.h - writes a compressed file from blocks of others, which are copied as they are
#pragma once

#include "tool/library.h"

namespace tool {

/// Each function reports its failures and returns the exit status.
class raw_output {
  public:
    explicit raw_output(const session& run) : run_(run) {}
    raw_output(const raw_output&) = delete;
    raw_output& operator=(const raw_output&) = delete;

    /// Creates the file `target`, "-" for standard output.
    int create(const path& target);

    /// Writes the header of a file for `original_size` bytes.
    int start(const qrx_params& params, uint64_t original_size, bool seals);

    /// Copies a block.  `crc` is the CRC-32 of its content for the seal, if there is one.
    int copy(const path& name, const open_reader& input, uint64_t block, const uint32_t* crc);

    /// Completes the content.
    int end();

    /// Gives the file its name, with traits of its source.
    int finish(const file_traits& traits, bool replaces);

    /// Reads the output back, for verification.
    qrx_source content() const { return source_of(file_, size_); }
    uint64_t size() const { return size_; }

  private:
    int fail(const path& name, const std::string& text, int status = exit_failed) const;
    int fail(qrx_status result) const;
    static int write(void* context, uint64_t offset, const void* src, size_t size);

    const session& run_;
    path target_;
    output_file file_;
    uint64_t size_ = 0;
    observer watcher_;
    writer_ptr writer_;
    std::vector<char> payload_;
};

/// Opens a file whose blocks are to be copied.  It must have all of them, and parameters that a
/// writer takes unchanged.
int open_for_copy(const session& run, const path& name, open_reader& input);

} // namespace tool
