// tool/library.h - handles, streams and events of qrx.h for the commands
#pragma once

#include "tool/console.h"
#include "tool/files.h"
#include "tool/progress.h"

#include <memory>

namespace tool {

/// What every command gets.
struct session {
    const options& settings;
    console& messages;
    progress_line& progress;
};

struct close_handle {
    void operator()(qrx_reader* reader) const { qrx_reader_close(reader); }
    void operator()(qrx_writer* writer) const { qrx_writer_close(writer); }
    void operator()(qrx_codec* codec) const { qrx_codec_free(codec); }
};
using reader_ptr = std::unique_ptr<qrx_reader, close_handle>;
using writer_ptr = std::unique_ptr<qrx_writer, close_handle>;
using codec_ptr = std::unique_ptr<qrx_codec, close_handle>;

/// The method whose streams depend on qrx_params.context_bits.
inline constexpr uint32_t method_with_context_bits = 4;

/// Number of bytes that are read or decoded per call where the library decodes ahead or holds the
/// block.
inline constexpr size_t part_bytes = size_t{1} << 20;

// Sizes of the parts of a .qrx file other than payloads.
inline constexpr size_t file_header_bytes = 32;
inline constexpr size_t record_head_bytes = 5;
inline constexpr size_t seal_bytes = 4;

/// Returns the exit status for a result of the library.
int exit_status_of(qrx_status result);

/// Collects the events of a handle, and passes on its progress.
struct observer {
    /// Further events are only counted, since a hostile file can cause one every five bytes.  The
    /// last event is always kept.
    static constexpr size_t max_events = 100'000;

    /// Called by the library, so it must not throw.
    void record(const qrx_event& event) noexcept;
    void forget();
    /// Notes from now on whether there is an event for `block`, even if it isn't kept.
    void watch(uint64_t block);

    std::vector<qrx_event> events;
    uint64_t dropped = 0;
    uint64_t watched_block = QRX_NO_BLOCK;
    bool has_watched_fault = false;
    progress_line* progress = nullptr;
};

/// Returns options that record events and progress in `watcher`, which must outlive the handle.
qrx_options library_options(observer& watcher, uint32_t threads, uint32_t flags);

/// Returns where a block starts in the original.  After the last block, that is the original's end;
/// rounded up to whole blocks, it could exceed 2^64.
uint64_t start_of(uint64_t block, const qrx_info& info);

/// Returns the bytes of the original that a fault concerns; empty if it concerns no block.
byte_range range_of(const qrx_event& fault, const qrx_info& info);

/// Describes a fault: "block 3 (bytes 100663296:134217728): a block has no record".  The sizes in
/// `info` are 0 if they are unknown.
std::string fault_text(const qrx_event& fault, const qrx_info& info);

/// Describes the failure of a library call, by its event if it reported one.
std::string failure_text(qrx_status result, const observer& watcher, const qrx_info& info = {});

/// Names both sizes, in bytes if they are the same in larger units.
std::string over_limit_text(uint64_t needed, uint64_t limit);

/// Returns the number of threads that compress an original of `size` bytes: the requested number,
/// or after a warning the largest that fits the memory limit.  0: the caller's thread does the
/// work.
uint32_t compressing_threads(const session& run, const path& name, const qrx_params& params,
                             uint64_t size);

/// The same for decompressing it from a file of `file_size` bytes.
uint32_t decompressing_threads(const session& run, const path& name, const qrx_params& params,
                               uint64_t size, uint64_t file_size);

/// Positioned input of the library from a file.
qrx_source source_of(const input_file& file);
/// Reads back an output.
qrx_source source_of(const output_file& file, uint64_t size);

/// A compressed input: a file or standard input.  If it can't be read at any offset, it is copied
/// to memory or to a temporary file.
class compressed_input {
  public:
    /// Opens `name`, "-" for standard input.  Returns an errno value.  Unless `copies_all`, only
    /// the start of an input that can't be a .qrx file is copied: source() has it, and read_rest()
    /// reads on.
    int open(const session& run, const path& name, bool copies_all);
    /// Reads the next bytes that source() doesn't have; `got` is 0 only at the end.
    int read_rest(void* dest, size_t size, size_t& got);
    /// Describes a failure of open(), which can be one of the temporary file.
    std::string error_text(int error) const;
    const input_file& file() const { return file_; }
    uint64_t size() const;
    qrx_source source() const;

  private:
    int spool(bool copies_all, size_t max_size);

    input_file file_;
    std::vector<char> memory_; // of standard input, while it is short
    std::unique_ptr<output_file> spool_;
    uint64_t spooled_ = 0;
    bool has_spool_error_ = false;
};

/// A compressed file open for reading.
struct open_reader {
    compressed_input input;
    observer watcher;
    reader_ptr reader;
    qrx_info info{};
    qrx_params params{};
    uint32_t threads = 0; // of the reader, at most

    /// Opens a file; reports failures and returns the exit status.  If `not_qrx` isn't null, it
    /// receives QRX_NOT_QRX instead of a message for a file that isn't a .qrx file.
    int open(const session& run, const path& name, uint32_t flags, qrx_status* not_qrx = nullptr);
    /// Does the same with `source`, which must outlive the reader; `name` is for messages.
    int open_source(const session& run, const path& name, const qrx_source& source, uint32_t flags,
                    qrx_status* not_qrx = nullptr);
};

} // namespace tool
