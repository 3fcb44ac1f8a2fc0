#include "format/container.h"
#include "format/records.h"
#include "pipeline/driver_file.h"

#include <algorithm>
#include <utility>

namespace quarnex {
namespace {

/// State of one file while its records are read and submitted.
struct decompression {
    driver_file file;
    u64 total = 0; // size of the source in bytes
    u64 consumed = 0;
    file_layout layout{};

    u64 source_left() const { return total - std::min(total, consumed); }
    status read_header();
    status read_payload(block_job& job, u32 size);
    status take_record(const record_head& head, u32 sequence);
    status run();
};

status decompression::read_header()
{
    std::array<u8, file_header_bytes> bytes;
    const read_result got = file.source().read(bytes.data(), bytes.size());
    if (got.count != bytes.size())
        return file.fail({.kind = event_kind::header_short, .cause = got.error},
                         got.error != 0 ? status::read_failed : status::truncated);
    consumed += bytes.size();
    file_header header{};
    if (!unpack_file_header(bytes, header)) return file.fail(event_kind::not_qrx, status::not_qrx);
    const auto described = lay_out(header);
    if (!described) return file.fail(event_kind::corrupt, status::corrupt);
    layout = *described;
    return status::done;
}

/// Reads a payload into a new buffer.
status decompression::read_payload(block_job& job, u32 size)
{
    read_result got{static_cast<usize>(std::min<u64>(size, source_left())), 0};
    if (size <= source_left()) { // a larger size is damage: allocate nothing
        job.in_alloc = file.pipeline().buffers.take(size);
        if (!job.in_alloc) return file.fail(event_kind::no_memory, status::no_memory);
        got = file.source().read(job.in_alloc.get(), size);
    }
    if (got.count != size)
        return file.fail({.kind = event_kind::payload_short,
                          .cause = got.error,
                          .block = job.block_index,
                          .wanted = size,
                          .got = got.count},
                         got.error != 0 ? status::read_failed : status::truncated);
    consumed += size;
    job.codec.in_buf = job.in_alloc.get();
    job.codec.in_len = size;
    return status::done;
}

/// Reads the payload that follows `head` and submits the block.
status decompression::take_record(const record_head& head, u32 sequence)
{
    const auto place = find_block(layout, head, sequence);
    if (!place) return file.fail(event_kind::corrupt, status::corrupt);
    block_job job;
    job.mode = direction::decompress;
    job.set_parameters(layout.parameters);
    job.block_index = place->index;
    job.block_count = layout.block_count;
    job.out_file = file.destination();
    job.codec.out_len = place->length;
    if (const status read = read_payload(job, head.size); read != status::done) return read;
    return file.pipeline().submit(std::move(job));
}

status decompression::run()
{
    for (u32 sequence = 0;; ++sequence) {
        std::array<u8, record_head_bytes> bytes;
        const read_result got = file.source().read(bytes.data(), bytes.size());
        if (got.error != 0)
            return file.fail({.kind = event_kind::source_unread, .cause = got.error},
                             status::read_failed);
        if (got.count != bytes.size()) return status::done;
        if (sequence != 0) {
            const status advanced = file.advance(consumed, total);
            if (advanced != status::done) return advanced;
        }
        consumed += bytes.size();
        const status taken = take_record(unpack_record_head(bytes.data()), sequence);
        if (taken != status::done) return taken;
        if (file.pipeline().thread_failures() != 0) return status::stopped;
    }
}

} // namespace

status decompress_file(engine& pipeline, const file_names& names)
{
    decompression work{{pipeline, names, direction::decompress}};
    driver_file& file = work.file;
    if (const status opened = file.open_source(); opened != status::done) return opened;
    work.total = file.source().size();
    if (const status read = work.read_header(); read != status::done) return read;
    // Don't truncate an existing destination after another file failed.
    if (pipeline.thread_failures() != 0) return status::stopped;
    if (const status created = file.create_destination(); created != status::done) return created;
    const status result = work.run();
    return result == status::done ? file.close_destination() : result;
}

} // namespace quarnex
