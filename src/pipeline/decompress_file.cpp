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
    u32 longest = 0; // length of the longest block so far
    u32 records = 0; // number of submitted ones
    file_layout layout{};
    read_result first_head{}; // of the first record, which is read together with the header
    std::array<u8, record_head_bytes> head_bytes{};

    u64 source_left() const { return total - std::min(total, consumed); }
    status read_header();
    status read_payload(block_job& job, u32 size);
    status take_record(const record_head& head);
    status run();
};

status decompression::read_header()
{
    std::array<u8, file_header_bytes + record_head_bytes> start;
    const read_result got = file.source().read(start.data(), start.size());
    std::array<u8, file_header_bytes> bytes;
    if (got.count < bytes.size())
        return file.fail({.kind = event_kind::header_short, .cause = got.error},
                         got.error != 0 ? status::read_failed : status::truncated);
    std::copy_n(start.begin(), bytes.size(), bytes.begin());
    first_head = {got.count - bytes.size(), got.error};
    std::copy(start.begin() + bytes.size(), start.end(), head_bytes.begin());
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
        // A payload of more than half a block takes a buffer that a block can take afterwards.
        const usize room = size > job.buffer_bytes / 2 ? job.buffer_bytes : size;
        const usize wanted = std::max<usize>(size, room);
        job.in_alloc = file.pipeline().pool_for(wanted).take(wanted);
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
status decompression::take_record(const record_head& head)
{
    const auto place = find_block(layout, head, records);
    if (!place) return file.fail(event_kind::corrupt, status::corrupt);
    block_job job;
    job.mode = direction::decompress;
    job.set_parameters(layout.parameters);
    job.block_index = place->index;
    job.block_count = layout.block_count;
    job.out_file = file.destination();
    job.codec.out_len = place->length;
    // Not the block size of the header, which can be far larger than the blocks.
    longest = std::max(longest, place->length);
    job.buffer_bytes = longest;
    file.pipeline().wait_for_room();
    if (const status read = read_payload(job, head.size); read != status::done) return read;
    // The last record of a file of one block: a worker can have it whole.
    const bool is_whole = job.block_count <= 1 && source_left() < record_head_bytes;
    if (is_whole && file.pipeline().submit_file(job)) return status::done;
    return file.pipeline().submit(std::move(job));
}

status decompression::run()
{
    for (;; ++records) {
        if (records != 0 && source_left() < head_bytes.size()) return status::done;
        const read_result got =
            records == 0 ? first_head : file.source().read(head_bytes.data(), head_bytes.size());
        if (got.error != 0)
            return file.fail({.kind = event_kind::source_unread, .cause = got.error},
                             status::read_failed);
        if (got.count != head_bytes.size()) return status::done;
        if (records != 0) {
            const status advanced = file.advance(consumed, total);
            if (advanced != status::done) return advanced;
        }
        consumed += head_bytes.size();
        const status taken = take_record(unpack_record_head(head_bytes.data()));
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
    if (result != status::done) return result;
    return file.close_destination(work.records, work.layout.block_count);
}

} // namespace quarnex
