#include "pipeline/record_index.h"

#include "common/bytes.h"
#include "format/checksum.h"

#include <algorithm>
#include <utility>

namespace quarnex {
namespace {

/// Largest difference between the number of a block and that of its record.
constexpr u64 max_displacement = 127;

/// Reads exactly `size` bytes; fewer are reported as truncation.
status read_exactly(const byte_source& file, const listener& watcher, u64 offset, u8* dest,
                    usize size)
{
    usize got = 0;
    const int error = file.read(file.context, offset, dest, size, got);
    if (error == 0 && got == size) return status::done;
    return watcher.report({.what = error != 0 ? status::read_failed : status::truncated,
                           .offset = offset,
                           .wanted = size,
                           .got = got,
                           .cause = error});
}

} // namespace

status record_index::read_header(const byte_source& file, const listener& watcher)
{
    std::array<u8, file_header_bytes> bytes{};
    usize size = static_cast<usize>(std::min<u64>(file.size, bytes.size()));
    const status read = read_exactly(file, watcher, 0, bytes.data(), size);
    if (read != status::done) return read;
    file_header header{};
    // A file shorter than a header is truncated if it starts like a .qrx file, otherwise not one.
    if (!unpack_file_header(bytes, header)) return watcher.report({.what = status::not_qrx});
    if (size != bytes.size())
        return watcher.report({.what = status::truncated, .wanted = bytes.size(), .got = size});
    const auto described = lay_out(header);
    // Block numbers have 32 bits; lay_out() clamps their count.
    if (!described ||
        count_blocks(header.original_size, described->parameters.block_size()) > UINT32_MAX)
        return watcher.report({.what = status::corrupt});
    layout_ = *described;
    return status::done;
}

u32 record_index::max_places(const byte_source& file) const
{
    const u64 room_for = (file.size - file_header_bytes) / record_head_bytes;
    return static_cast<u32>(std::min<u64>(layout_.record_count(), room_for + max_displacement));
}

u64 record_index::length_of(u32 block) const
{
    return block_length(layout_.original_size, layout_.parameters.block_size(), block);
}

void record_index::forget_sums()
{
    for (u32 block = 0; block < place_count_; ++block) places_[block].is_summed = false;
}

const block_place* record_index::find(u32 block) const
{
    return block < place_count_ && places_[block].is_found() ? &places_[block] : nullptr;
}

block_place* record_index::find(u32 block)
{
    return const_cast<block_place*>(std::as_const(*this).find(block));
}

void record_index::note(const listener& damage_watcher, const notice& fault)
{
    if (layout_fault_ == status::done) layout_fault_ = fault.what;
    is_cut_ = is_cut_ || fault.what == status::corrupt || fault.what == status::truncated;
    damage_watcher.report(fault);
}

status record_index::read_records(const allocator& source, const byte_source& file,
                                  const listener& watcher, const listener& damage_watcher)
{
    if (!places_) {
        places_ = make_zeroed_array<block_place>(source, max_places(file));
        if (!places_) return watcher.report({.what = status::no_memory});
        place_count_ = max_places(file);
    }
    is_cut_ = false;
    u64 position = file_header_bytes;
    for (u32 sequence = 0; sequence < layout_.record_count() && !is_cut_; ++sequence) {
        const status read = read_record(file, watcher, damage_watcher, sequence, position);
        if (read != status::done) return read;
    }
    if (!is_cut_) {
        const status read = read_end(file, watcher, damage_watcher, position);
        if (read != status::done) return read;
    }
    if (found_ != layout_.record_count()) report_missing(damage_watcher);
    return status::done;
}

status record_index::read_record(const byte_source& file, const listener& watcher,
                                 const listener& damage_watcher, u32 sequence, u64& position)
{
    notice fault{.what = status::truncated, .offset = position};
    const u64 left = file.size - position;
    if (left < record_head_bytes) {
        fault.wanted = record_head_bytes;
        fault.got = left;
        note(damage_watcher, fault);
        return status::done;
    }
    std::array<u8, record_head_bytes> bytes;
    const status read = read_exactly(file, watcher, position, bytes.data(), bytes.size());
    if (read != status::done) return read;
    const record_head head = unpack_record_head(bytes.data());
    const auto extent = find_block(layout_, head, sequence);
    if (!extent) {
        fault.what = status::corrupt;
        note(damage_watcher, fault);
        return status::done;
    }
    fault.block = extent->index;
    if (head.size > left - record_head_bytes) {
        fault.wanted = head.size;
        fault.got = left - record_head_bytes;
        note(damage_watcher, fault);
        return status::done;
    }
    block_place& place = places_[extent->index];
    const u64 payload_offset = position + record_head_bytes;
    if (place.is_found() && place.offset != payload_offset) {
        fault.what = status::block_repeated;
        note(damage_watcher, fault);
    } else if (!place.is_found()) {
        place = {payload_offset, head.size, false};
        ++found_;
        stored_ += head.size == extent->length ? 1 : 0;
    }
    position += record_head_bytes + head.size;
    return status::done;
}

status record_index::read_end(const byte_source& file, const listener& watcher,
                              const listener& damage_watcher, u64 position)
{
    const u64 left = file.size - position;
    if (left == seal_bytes) {
        std::array<u8, seal_bytes> bytes;
        const status read = read_exactly(file, watcher, position, bytes.data(), bytes.size());
        if (read != status::done) return read;
        seal_ = load_u32(bytes.data());
    } else if (left != 0) {
        note(damage_watcher, {.what = status::trailing_bytes, .offset = position, .got = left});
    }
    return status::done;
}

u32 record_index::skip_to(u32 block, bool is_found) const
{
    while (block < place_count_ && places_[block].is_found() != is_found) ++block;
    return block;
}

void record_index::report_missing(const listener& damage_watcher)
{
    const u32 count = layout_.record_count();
    for (u32 block = skip_to(0, false); block < count;) {
        u32 end = skip_to(block, true);
        if (end == place_count_) end = count; // blocks from there on can't have a record
        note(damage_watcher,
             {.what = status::block_missing, .block = block, .wanted = end - block});
        block = skip_to(end, false);
    }
}

} // namespace quarnex
