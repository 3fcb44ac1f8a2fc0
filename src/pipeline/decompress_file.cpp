#include "format/container.h"
#include "pipeline/block_coder.h"
#include "pipeline/drivers.h"
#include "pipeline/errors.h"
#include "pipeline/output_file.h"
#include "pipeline/progress.h"
#include "pipeline/source_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace quarnex {
namespace {

std::string output_name(const std::string& destination)
{
    if (!has_suffix(destination.c_str())) return destination + ".out";
    return destination.substr(0, destination.size() - file_suffix_bytes);
}

/// Decodes a block and writes it on this thread.
i32 finish_in_place(pipeline_state& state, block_job& job)
{
    write_job data;
    switch (decode_block(state.buffers, job, data)) {
    case block_result::done:
        break;
    case block_result::no_memory:
        return report_fatal(error_no_memory);
    case block_result::not_started:
    case block_result::failed:
        return driver_failed;
    }
    return write_block(data, 0) ? driver_done : report_fatal(error_write);
}

/// One file while its records are read and handed on.
struct decompression {
    pipeline_state& state;
    const std::string& source_name;
    source_file source;
    u64 source_left = 0; // bytes behind the reading position
    file_header header{};
    std::shared_ptr<output_file> destination = nullptr;
    u32 block_count = 0;

    void took(u64 bytes) { source_left -= std::min(source_left, bytes); }
    i32 read_header();
    i32 read_payload(block_job& job, u32 size);
    i32 take_record(const record_head& head, u32 sequence);
    i32 run();
};

i32 decompression::read_header()
{
    std::array<u8, file_header_bytes> bytes;
    errno = 0;
    if (std::fread(bytes.data(), 1, bytes.size(), source.get()) != bytes.size()) {
        return report_fatal(error_read);
    }
    took(bytes.size());
    if (!unpack_file_header(bytes, header)) {
        std::printf("'%s' not qrx file\n", source_name.c_str());
        return report_fatal(error_no_header);
    }
    const file_parameters& parameters = header.parameters;
    if (parameters.level > last_level || parameters.block_mb == 0)
        return report_fatal(error_corrupted);
    // No file has so many records that the limit would be missed.
    const u64 count = count_blocks(header.original_size, parameters.block_size());
    block_count = static_cast<u32>(std::min<u64>(count, UINT32_MAX));
    return driver_done;
}

/// Reads a payload into a buffer of its own, with zeros behind it.
i32 decompression::read_payload(block_job& job, u32 size)
{
    u64 got = source_left;
    errno = 0;
    if (size <= source_left) { // more is damage, and no reason to ask for memory
        job.in_alloc = state.buffers.take(usize{size} + payload_slack);
        if (!job.in_alloc) return report_fatal(error_no_memory);
        got = std::fread(job.in_alloc.get(), 1, size, source.get());
    }
    if (got != size) {
        const int error = errno;
        std::printf("err=%s, %d,%d ", error != 0 ? std::strerror(error) : "",
                    static_cast<i32>(size), static_cast<i32>(got));
        errno = error;
        return report_fatal(error_read);
    }
    took(size);
    std::memset(job.in_alloc.get() + size, 0, payload_slack);
    job.in_buf = job.in_alloc.get();
    job.in_len = size;
    return driver_done;
}

/// Reads the record behind `head` and hands its block on.
i32 decompression::take_record(const record_head& head, u32 sequence)
{
    const file_parameters& parameters = header.parameters;
    const u64 block_size = parameters.block_size();
    const u32 places = block_count != 0 ? block_count : 1; // an empty file has one empty record
    const i64 index = displaced_index(head.displacement, sequence);
    // A file has a record for each block and no more: behind the last one the writer closes it.
    if (sequence >= places || index < 0 || index >= places) return report_fatal(error_corrupted);
    const u64 length = block_length(header.original_size, block_size, static_cast<u64>(index));
    if (length > INT32_MAX || head.size > length) return report_fatal(error_corrupted);
    if (head.size != length && find_decoder(parameters.method) == nullptr)
        return report_fatal(error_corrupted);

    block_job job;
    job.parameters = parameters;
    job.block_index = static_cast<u32>(index);
    job.block_count = block_count;
    job.out_file = destination;
    job.out_len = static_cast<u32>(length);
    if (const i32 result = read_payload(job, head.size); result < 0) return result;
    if (state.thread_count == 0) return finish_in_place(state, job);
    state.enqueue(std::move(job));
    return driver_done;
}

i32 decompression::run()
{
    progress_line progress(source_name, source_left);
    for (u32 sequence = 0;; ++sequence) {
        std::array<u8, record_head_bytes> bytes;
        if (std::fread(bytes.data(), 1, bytes.size(), source.get()) != bytes.size()) {
            return has_failed(source, source_name) ? driver_failed : driver_done;
        }
        took(bytes.size());
        const record_head head = unpack_record_head(bytes.data());
        if (const i32 result = take_record(head, sequence); result < 0) return result;
        progress.advance(record_head_bytes + head.size);
        if (state.abort_count != 0) return driver_failed;
    }
}

} // namespace

i32 decompress_file(pipeline_state& state, const std::string& source,
                    const std::string& destination)
{
    decompression file{state, source, open_source(source)};
    if (!file.source) return driver_failed;
    file.source_left = file_size(file.source.get());
    if (const i32 result = file.read_header(); result < 0) return result;
    // Nothing is emptied for a run that has failed already.
    if (state.abort_count != 0) return driver_failed;
    file.destination = state.create_destination(output_name(destination));
    if (!file.destination) return driver_ends_run;

    const i32 result = file.run();
    // With workers the writer closes the destination behind its last block.
    if (result < 0 || state.thread_count != 0) return result;
    return file.destination->close() ? result : report_fatal(error_write);
}

} // namespace quarnex
