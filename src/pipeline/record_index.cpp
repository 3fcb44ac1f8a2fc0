#include "pipeline/record_index.h"

#include "common/bytes.h"
#include "format/checksum.h"
#include "pipeline/parameters.h"
#include "pipeline/read_exactly.h"

#include <algorithm>
#include <utility>

namespace quarnex {
namespace {

/// Largest difference between the number of a block and that of its record.
constexpr u64 max_displacement = 127;

} // namespace

status record_index::read_header(const byte_source& file, const listener& watcher)
{
    std::array<u8, file_header_bytes> bytes{};
    usize size = static_cast<usize>(std::min<u64>(file.size, bytes.size()));
    const status read = read_exactly(file, watcher, 0, bytes.data(), size);
    if (read != status::done) return read;
    file_header header{};
    // A file shorter than a header is truncated if it starts like a .qrx file, otherwise not a .qrx
    // file.
    if (!unpack_file_header(bytes, header)) return watcher.report({.what = status::not_qrx});
    if (size != bytes.size())
        return watcher.report({.what = status::truncated, .wanted = bytes.size(), .got = size});
    const auto described = lay_out(header);
    // Block numbers have 32 bits; lay_out() clamps their count.
    if (!described ||
        count_blocks(header.original_size, described->parameters.block_size()) > UINT32_MAX)
        return watcher.report({.what = status::corrupt});
    layout_ = *described;
    is_canonical_ = pack_file_header(header) == bytes && are_settled(header.parameters);
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
    if (layout_fault_ == status::done) {
        layout_fault_ = fault.what;
        fault_offset_ = fault.offset;
    }
    damage_watcher.report(fault);
}

u64 record_index::memory_needed(const byte_source& file) const
{
    return sizeof(block_place) * u64{max_places(file)};
}

u64 record_index::search_memory(const byte_source& file) const
{
    return searches_ ? chain_search_memory(layout_, file) : 0;
}

status record_index::missing_fault(u64& offset) const
{
    const bool is_cut = layout_fault_ == status::truncated || layout_fault_ == status::corrupt;
    if (!is_cut || chain_) return status::block_missing;
    offset = fault_offset_;
    return layout_fault_;
}

status record_index::read_records(const allocator& source, const byte_source& file,
                                  const listener& watcher, const listener& damage_watcher)
{
    const bool is_first_call = !places_;
    if (is_first_call) {
        places_ = make_zeroed_array<block_place>(source, max_places(file));
        if (!places_) return watcher.report({.what = status::no_memory});
        place_count_ = max_places(file);
    }
    if (header_fault_ != status::done) note(damage_watcher, {.what = header_fault_});
    walk at{file, watcher, damage_watcher, is_first_call};
    status read = read_to(at, chain_ ? chain_->kept : layout_.record_count());
    if (read == status::done && at.fault.what != status::done && is_first_call && searches_)
        read = search(source, at);
    if (read == status::done && chain_) read = resume(at);
    if (read == status::done && at.fault.what == status::done) read = read_end(at);
    if (read != status::done) return read;
    is_canonical_ = is_canonical_ && at.is_canonical;
    if (at.fault.what != status::done) note(damage_watcher, at.fault);
    if (is_first_call && searches_) guess_lost_block();
    if (guess_ && !has_lost_one()) note(damage_watcher, *guess_);
    if (found_ != layout_.record_count()) report_missing(damage_watcher);
    if (!is_first_call || !chain_ || repeated_count_ == 0) return status::done;
    // A record of the chain may have taken the block of one before the damaged part, which later
    // calls then report first.
    layout_fault_ = status::done;
    return read_records(source, file, watcher, {});
}

status record_index::read_to(walk& at, u32 end)
{
    while (at.trail.count < end && at.fault.what == status::done) {
        const status read = read_record(at);
        if (read != status::done) return read;
    }
    return status::done;
}

status record_index::read_record(walk& at)
{
    const u64 position = at.position();
    const u64 left = at.file.size - position;
    at.fault = {.what = status::truncated, .offset = position};
    if (left < record_head_bytes) {
        at.fault.wanted = record_head_bytes;
        at.fault.got = left;
        return status::done;
    }
    std::array<u8, record_head_bytes> bytes;
    const status read = read_exactly(at.file, at.watcher, position, bytes.data(), bytes.size());
    if (read != status::done) return read;
    const record_head head = unpack_record_head(bytes.data());
    const auto extent = find_block(layout_, head, at.trail.count);
    if (!extent || (searches_ && !is_plausible(layout_, head))) {
        at.fault.what = status::corrupt;
        return status::done;
    }
    at.fault.block = extent->index;
    if (head.size > left - record_head_bytes) {
        at.fault.wanted = head.size;
        at.fault.got = left - record_head_bytes;
        at.trail.is_confirmed = true;
        return status::done;
    }
    at.fault.what = status::done;
    at.is_canonical =
        at.is_canonical && head.displacement == displacement_byte(extent->index, at.trail.count);
    add_record(at, head, extent->index);
    at.trail.add(at.trail.count + 1, position + record_head_bytes + head.size);
    return status::done;
}

void record_index::add_record(const walk& at, const record_head& head, u32 block)
{
    block_place& place = places_[block];
    const block_place added{at.position() + record_head_bytes, head.size, false};
    if (!place.is_found()) return place_record(block, added);
    if (place.offset == added.offset) return;
    note(at.damage_watcher,
         {.what = status::block_repeated, .block = block, .offset = at.position()});
    if (!searches_ || !at.is_first) return;
    // One displacement is wrong: probably one other than 0, since most are 0.
    const bool is_natural = displaced_index(head.displacement, at.trail.count) == at.trail.count;
    repeated_ = is_natural ? place : added;
    ++repeated_count_;
    if (!is_natural) return;
    remove_record(block);
    place_record(block, added);
}

void record_index::place_record(u32 block, const block_place& place)
{
    places_[block] = place;
    ++found_;
    stored_ += place.size == length_of(block) ? 1 : 0;
}

void record_index::remove_record(u32 block)
{
    --found_;
    stored_ -= places_[block].size == length_of(block) ? 1 : 0;
    places_[block] = {};
}

status record_index::search(const allocator& source, walk& at)
{
    // More blocks than records fit into the file: the size of the original is impossible.
    if (layout_.block_count == 0 || layout_.block_count > place_count_) return status::done;
    const status searched = find_chain(source, at.file, layout_, at.trail, at.watcher, chain_);
    if (searched == status::no_memory) return at.watcher.report({.what = searched});
    if (searched != status::done || !chain_ || chain_->kept == at.trail.count) return searched;
    // A discarded record may have replaced one that is kept: walk again.
    for (u32 block = 0; block < place_count_; ++block)
        if (places_[block].is_found()) remove_record(block);
    repeated_count_ = 0;
    layout_fault_ = header_fault_;
    fault_offset_ = 0;
    at.trail = {};
    at.fault.what = status::done;
    at.is_canonical = true;
    return read_to(at, chain_->kept);
}

status record_index::resume(walk& at)
{
    notice damage{.what = status::corrupt, .offset = chain_->gap};
    if (guess_ && has_lost_one()) damage.block = guess_->block;
    note(at.damage_watcher, damage);
    at.fault.what = status::done;
    at.trail.add(layout_.record_count() - chain_->records, chain_->start);
    return read_to(at, layout_.record_count());
}

void record_index::guess_lost_block()
{
    const u32 block = skip_to(0, false);
    if (layout_.record_count() - found_ != 1 || block >= place_count_) return;
    block_place place{};
    if (has_lost_one()) {
        place.offset = chain_->gap + record_head_bytes;
        place.size = static_cast<u32>(chain_->start - place.offset);
    } else if (repeated_count_ == 1) {
        place = repeated_;
    }
    const u64 length = length_of(block);
    const bool can_decode = place.size == length || is_method(layout_.parameters.codec.method);
    if (place.size == 0 || place.size > length || length > INT32_MAX || !can_decode) return;
    place_record(block, place);
    guess_ = {.what = status::corrupt, .block = block, .offset = place.offset - record_head_bytes};
}

status record_index::read_end(const walk& at)
{
    const u64 position = at.position();
    const u64 left = at.file.size - position;
    if (left == seal_bytes) {
        std::array<u8, seal_bytes> bytes;
        const status read = read_exactly(at.file, at.watcher, position, bytes.data(), bytes.size());
        if (read != status::done) return read;
        seal_ = load_u32(bytes.data());
    } else if (left != 0) {
        note(at.damage_watcher, {.what = status::trailing_bytes, .offset = position, .got = left});
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
