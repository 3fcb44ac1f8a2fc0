#include "tool/library.h"

#include "tool/process.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <thread>

namespace tool {
namespace {

/// Largest standard input that stays in memory: without and with a memory limit.
constexpr size_t max_in_memory = size_t{16} << 20;
constexpr size_t max_in_limited_memory = part_bytes;

/// What a reader allocates at most for each block of its file, besides its buffers.
constexpr uint64_t max_index_entry = 16;

int read_input(void* context, uint64_t offset, void* dest, size_t size, size_t* got)
{
    return static_cast<const input_file*>(context)->read_at(offset, dest, size, *got);
}

int read_output(void* context, uint64_t offset, void* dest, size_t size, size_t* got)
{
    return static_cast<const output_file*>(context)->read_at(offset, dest, size, *got);
}

int read_memory(void* context, uint64_t offset, void* dest, size_t size, size_t* got)
{
    const auto& memory = *static_cast<const std::vector<char>*>(context);
    const size_t start = static_cast<size_t>(std::min<uint64_t>(offset, memory.size()));
    *got = std::min(size, memory.size() - start);
    std::copy_n(memory.data() + start, *got, static_cast<char*>(dest));
    return 0;
}

/// Returns the number of threads for an original of `size` bytes.  `memory` returns the memory for
/// a number of threads, without `more` bytes.
uint32_t choose_threads(const session& run, const path& name, const qrx_params& params,
                        uint64_t size, uint64_t (*memory)(const qrx_params*, uint32_t),
                        uint64_t more)
{
    const uint32_t wanted =
        run.settings.threads != 0
            ? run.settings.threads
            : std::clamp(std::thread::hardware_concurrency(), 1U, QRX_MAX_THREADS);
    const uint64_t limit = run.settings.memory_limit;
    // The library starts no thread for a single block.
    if (limit == 0 || size <= uint64_t{params.block_mib} << 20) return wanted;
    uint32_t threads = wanted;
    while (threads != 0 && memory(&params, threads) + more > limit) --threads;
    if (threads != wanted)
        run.messages.warn(name, (threads != 0 ? "uses " + std::to_string(threads) + " of " +
                                                    std::to_string(wanted) + " threads"
                                              : std::string("uses no worker threads")) +
                                    ", to stay within the memory limit");
    return threads;
}

/// Returns the number of threads for a reader.  With a memory limit it depends on the header, which
/// is read first.
uint32_t reader_threads(const session& run, const path& name, const qrx_source& source,
                        uint32_t flags)
{
    qrx_params known{};
    known.struct_size = sizeof known;
    qrx_info info{};
    info.struct_size = sizeof info;
    if (run.settings.memory_limit != 0) {
        observer unused;
        qrx_options look = library_options(unused, 0, flags);
        look.memory_limit = run.settings.memory_limit;
        qrx_reader* made = nullptr;
        if (qrx_reader_open_source(&made, &source, &look) != QRX_OK) return 0;
        const reader_ptr first(made);
        qrx_reader_params(made, &known);
        qrx_reader_info(made, &info);
    }
    return decompressing_threads(run, name, known, info.original_size, source.size);
}

} // namespace

int exit_status_of(qrx_status result)
{
    switch (result) {
    case QRX_OK:
        return exit_good;
    case QRX_NOT_QRX:
    case QRX_TRUNCATED:
    case QRX_CORRUPT:
    case QRX_CHECKSUM_MISMATCH:
    case QRX_BLOCK_SHORT:
    case QRX_INEXACT_END:
    case QRX_BLOCK_MISSING:
    case QRX_BLOCK_REPEATED:
    case QRX_TRAILING_BYTES:
        return exit_damaged;
    case QRX_BAD_ARGUMENT:
    case QRX_BUFFER_TOO_SMALL:
        return exit_internal;
    default:
        return exit_failed;
    }
}

void observer::record(const qrx_event& event) noexcept
{
    has_watched_fault |= event.block == watched_block;
    try {
        if (events.size() < max_events) {
            events.push_back(event);
            return;
        }
    } catch (const std::bad_alloc&) { // counted below
    }
    ++dropped;
    if (!events.empty()) events.back() = event;
}

void observer::forget()
{
    events.clear();
    dropped = 0;
}

void observer::watch(uint64_t block)
{
    watched_block = block;
    has_watched_fault = false;
}

qrx_options library_options(observer& watcher, uint32_t threads, uint32_t flags)
{
    qrx_options made{};
    made.struct_size = sizeof made;
    made.threads = threads;
    made.flags = flags;
    made.context = &watcher;
    made.event = [](void* context, const qrx_event* event) {
        static_cast<observer*>(context)->record(*event);
    };
    made.progress = [](void* context, uint64_t done, uint64_t) {
        progress_line* progress = static_cast<observer*>(context)->progress;
        if (progress != nullptr) progress->advance(done);
        return 0;
    };
    return made;
}

uint64_t start_of(uint64_t block, const qrx_info& info)
{
    return block < info.block_count ? block * info.block_size : info.original_size;
}

byte_range range_of(const qrx_event& fault, const qrx_info& info)
{
    if (fault.block == QRX_NO_BLOCK) return {0, 0};
    const uint64_t blocks =
        fault.what == QRX_BLOCK_MISSING ? std::max<uint64_t>(fault.wanted, 1) : 1;
    return {start_of(fault.block, info), start_of(fault.block + blocks, info)};
}

std::string fault_text(const qrx_event& fault, const qrx_info& info)
{
    std::string text = qrx_status_text(fault.what);
    if (fault.system_error != 0) text += ": " + system_error_text(fault.system_error);
    if (fault.block == QRX_NO_BLOCK) {
        if (fault.offset != 0) text += " at offset " + std::to_string(fault.offset);
        return text;
    }
    std::string place = "block " + std::to_string(fault.block);
    if (fault.what == QRX_BLOCK_MISSING && fault.wanted > 1)
        place = "blocks " + std::to_string(fault.block) + " to " +
                std::to_string(fault.block + fault.wanted - 1);
    const byte_range range = range_of(fault, info);
    if (range.first < range.last)
        place += " (bytes " + std::to_string(range.first) + ":" + std::to_string(range.last) + ")";
    return place + ": " + text;
}

std::string failure_text(qrx_status result, const observer& watcher, const qrx_info& info)
{
    if (watcher.events.empty() || watcher.events.back().what != result)
        return qrx_status_text(result);
    const qrx_event& last = watcher.events.back();
    if (result == QRX_OVER_LIMIT) return over_limit_text(last.wanted, last.got);
    // For a failed read or write, the text of the system error is enough.
    const bool is_system = last.system_error != 0 && last.block == QRX_NO_BLOCK;
    return is_system ? system_error_text(last.system_error) : fault_text(last, info);
}

std::string over_limit_text(uint64_t needed, uint64_t limit)
{
    std::string needed_text = size_text(needed);
    std::string limit_text = size_text(limit);
    if (needed_text == limit_text) {
        needed_text = std::to_string(needed) + " bytes";
        limit_text = std::to_string(limit) + " bytes";
    }
    return "needs " + needed_text + ", and the memory limit is " + limit_text;
}

uint32_t compressing_threads(const session& run, const path& name, const qrx_params& params,
                             uint64_t size)
{
    return choose_threads(run, name, params, size, qrx_compress_memory, 0);
}

uint32_t decompressing_threads(const session& run, const path& name, const qrx_params& params,
                               uint64_t size, uint64_t file_size)
{
    const uint64_t block_size = uint64_t{params.block_mib} << 20;
    const uint64_t blocks = block_size != 0 ? size / block_size + 1 : 0;
    const uint64_t index = max_index_entry * std::min(blocks, file_size / record_head_bytes);
    return choose_threads(run, name, params, size, qrx_decompress_memory, index);
}

qrx_source source_of(const input_file& file)
{
    qrx_source source{};
    source.struct_size = sizeof source;
    source.read = read_input;
    source.size = file.size();
    source.context = const_cast<input_file*>(&file);
    return source;
}

qrx_source source_of(const output_file& file, uint64_t size)
{
    qrx_source source{};
    source.struct_size = sizeof source;
    source.read = read_output;
    source.size = size;
    source.context = const_cast<output_file*>(&file);
    return source;
}

int compressed_input::open(const session& run, const path& name, bool copies_all)
{
    const int error = is_stdio(name) ? file_.open_stdin() : file_.open(name);
    if (error != 0 || file_.is_seekable()) return error;
    return spool(copies_all,
                 run.settings.memory_limit != 0 ? max_in_limited_memory : max_in_memory);
}

/// Copies an input that can't be read at any offset.
int compressed_input::spool(bool copies_all, size_t max_size)
{
    memory_.resize(max_size + 1);
    size_t got = 0;
    int error = file_.read(memory_.data(), file_header_bytes, got);
    uint64_t size = 0;
    const bool has_header = qrx_decompressed_size(memory_.data(), got, &size) == QRX_OK;
    if (error == 0 && (has_header || copies_all)) {
        const size_t start = got;
        error = file_.read(memory_.data() + start, memory_.size() - start, got);
        got += start;
    }
    if (error != 0) return error;
    memory_.resize(got);
    if (got <= max_size) return 0;
    spool_ = std::make_unique<output_file>();
    error = spool_->create_temporary();
    has_spool_error_ = error != 0;
    while (error == 0 && got != 0) {
        error = spool_->write_at(spooled_, memory_.data(), got);
        has_spool_error_ = error != 0;
        spooled_ += got;
        memory_.resize(part_bytes);
        if (error == 0) error = file_.read(memory_.data(), memory_.size(), got);
    }
    memory_ = std::vector<char>(); // "= {}" would keep the capacity
    return error;
}

int compressed_input::read_rest(void* dest, size_t size, size_t& got)
{
    got = 0;
    return file_.is_seekable() ? 0 : file_.read(dest, size, got);
}

std::string compressed_input::error_text(int error) const
{
    return (has_spool_error_ ? "temporary file: " : "") + system_error_text(error);
}

uint64_t compressed_input::size() const
{
    if (spool_) return spooled_;
    return file_.is_seekable() ? file_.size() : memory_.size();
}

qrx_source compressed_input::source() const
{
    if (spool_) return source_of(*spool_, spooled_);
    if (file_.is_seekable()) return source_of(file_);
    qrx_source source{};
    source.struct_size = sizeof source;
    source.read = read_memory;
    source.size = memory_.size();
    source.context = const_cast<std::vector<char>*>(&memory_);
    return source;
}

int open_reader::open(const session& run, const path& name, uint32_t flags, qrx_status* not_qrx)
{
    if (is_stdio(name) && stdin_is_terminal() && !run.settings.force) {
        run.messages.error(name, "compressed data isn't read from a terminal");
        return exit_failed;
    }
    const int error = input.open(run, name, (flags & QRX_SEARCH) != 0);
    if (error != 0) {
        run.messages.error(name, input.error_text(error));
        return exit_failed;
    }
    return open_source(run, name, input.source(), flags, not_qrx);
}

int open_reader::open_source(const session& run, const path& name, const qrx_source& source,
                             uint32_t flags, qrx_status* not_qrx)
{
    watcher.progress = &run.progress;
    qrx_reader* made = nullptr;
    threads = reader_threads(run, name, source, flags);
    qrx_options chosen = library_options(watcher, threads, flags);
    chosen.memory_limit = run.settings.memory_limit;
    const qrx_status result = qrx_reader_open_source(&made, &source, &chosen);
    if (result == QRX_NOT_QRX && not_qrx != nullptr) {
        *not_qrx = result;
        return exit_damaged;
    }
    if (result != QRX_OK) {
        run.progress.end();
        run.messages.error(name, failure_text(result, watcher));
        return exit_status_of(result);
    }
    reader.reset(made);
    info.struct_size = sizeof info;
    params.struct_size = sizeof params;
    qrx_reader_info(made, &info);
    qrx_reader_params(made, &params);
    return exit_good;
}

} // namespace tool
