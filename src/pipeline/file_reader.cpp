#include "pipeline/file_reader.h"

#include "format/checksum.h"
#include "pipeline/header_search.h"
#include "pipeline/memory_needs.h"

#include <algorithm>
#include <cstring>

namespace quarnex {
namespace {

/// True for damage to the file, as opposed to failures of the system or of the call.
bool is_damage(status fault)
{
    switch (fault) {
    case status::truncated:
    case status::corrupt:
    case status::block_short:
    case status::inexact_end:
    case status::block_missing:
    case status::block_repeated:
    case status::trailing_bytes:
    case status::checksum_mismatch:
        return true;
    default:
        return false;
    }
}

/// Keeps the first of several faults.
void keep_first(status& first, status fault)
{
    if (first == status::done) first = fault;
}

} // namespace

file_reader::file_reader(const allocator& source, const byte_source& file, const listener& watcher,
                         u32 threads, damage_rules rules)
    : source_(source), file_(file), watcher_(watcher), threads_(threads), rules_(rules),
      index_(rules.searches)
{
}

status file_reader::open(u64 memory_limit)
{
    if (const status read = read_header(memory_limit); read != status::done) return read;
    const file_layout& layout = index_.layout();
    const u64 length = std::min(layout.parameters.block_size(), layout.original_size);
    const u32 threads = useful_threads(threads_, layout.block_count);
    const u64 needed =
        index_.memory_needed(file_) + std::max(reader_memory(layout.parameters, length, threads),
                                               index_.search_memory(file_)); // not at the same time
    if (needed > memory_limit)
        return watcher_.report({.what = status::over_limit, .wanted = needed, .got = memory_limit});
    unsummed_ = layout.block_count;
    return index_.read_records(source_, file_, watcher_, {});
}

status file_reader::read_header(u64 memory_limit)
{
    const status stated = index_.read_header(file_, watcher_);
    const bool is_valid = stated == status::done;
    const bool is_damaged = stated == status::not_qrx || stated == status::corrupt;
    if (!rules_.searches || !(is_valid || is_damaged) || file_.size < file_header_bytes)
        return stated;
    std::optional<file_layout> found;
    const status searched = find_layout(source_, memory_limit, file_, watcher_, is_valid, found);
    if (searched != status::done) return searched;
    if (!found) return stated;
    const status fault = is_valid ? watcher_.report({.what = status::corrupt}) : stated;
    index_.replace_header(*found, fault);
    return status::done;
}

void file_reader::forget_sums()
{
    index_.forget_sums();
    sum_ = 0;
    unsummed_ = index_.layout().block_count;
}

status file_reader::read(u64 offset, u8* dest, usize size, usize& got)
{
    got = 0;
    if (original_size() == 0) {
        const status result = check_seal();
        return rules_.keeps_damaged ? status::done : result;
    }
    if (offset >= original_size()) return status::done;
    const u64 end = offset + std::min<u64>(size, original_size() - offset);
    u64 valid = offset;
    const status result =
        run({offset, end, dest, offset == expected_}, valid, rules_.keeps_damaged);
    expected_ = valid;
    got = static_cast<usize>(valid - offset);
    return result != status::done && rules_.keeps_damaged && is_damage(result) ? status::done
                                                                               : result;
}

status file_reader::read_all(u8* dest, usize& got)
{
    const status result = read(0, dest, static_cast<usize>(original_size()), got);
    if (result != status::done || index_.layout_fault() == status::done) return result;
    const status read = index_.read_records(source_, file_, watcher_, watcher_);
    if (read != status::done) return read;
    return rules_.keeps_damaged ? status::done : index_.layout_fault();
}

status file_reader::read_payload(u32 block, u8* dest)
{
    const block_place* const place = index_.find(block);
    notice fault{.what = status::block_missing, .block = block};
    if (place != nullptr) fault.what = read_bytes(*place, dest, fault);
    return fault.what == status::done ? status::done : watcher_.report(fault);
}

status file_reader::test()
{
    const status result = test_all();
    // Later reads decode all blocks again, and report their damage.
    if (coder_) coder_->drop_all();
    forget_sums();
    return result;
}

status file_reader::test_all()
{
    if (coder_) coder_->drop_all();
    const status read = index_.read_records(source_, file_, watcher_, watcher_);
    if (read != status::done) return read;
    forget_sums();
    status first = index_.layout_fault();
    if (index_.seal() && !index_.is_canonical())
        keep_first(first, watcher_.report({.what = status::corrupt}));
    if (index_.layout().block_count == 0) {
        keep_first(first, check_seal());
        return first;
    }
    for (u32 begin = index_.skip_to(0, true), end = 0; index_.find(begin) != nullptr;
         begin = index_.skip_to(end, true)) {
        end = index_.skip_to(begin, false);
        const u64 end_offset = index_.offset_of(end - 1) + index_.length_of(end - 1);
        u64 valid = 0;
        const status tested =
            run({index_.offset_of(begin), end_offset, nullptr, true}, valid, true);
        keep_first(first, tested);
        if (tested != status::done && !is_damage(tested)) return tested;
    }
    return first;
}

status file_reader::run(const request& wanted, u64& done, bool skips_damage)
{
    if (!coder_) {
        const u32 threads = useful_threads(threads_, index_.layout().block_count);
        coder_.emplace(source_, threads, reader_capacity(threads), 0U);
        const status started = coder_->start();
        if (started != status::done) {
            coder_.reset();
            return watcher_.report({.what = started});
        }
    }
    const u64 block_size = index_.layout().parameters.block_size();
    status first = status::done;
    for (done = wanted.offset; done < wanted.end;) {
        status fault = run_block(static_cast<u32>(done / block_size), wanted, done, skips_damage);
        if (fault == status::done || (skips_damage && is_damage(fault))) {
            keep_first(first, fault);
            fault = watcher_.report_progress(done, original_size());
        }
        if (fault != status::done) {
            coder_->drop_all(); // workers may be decoding into `dest`
            return fault;
        }
    }
    return first;
}

status file_reader::run_block(u32 block, const request& wanted, u64& done, bool skips_damage)
{
    ordered_block& loaded = load(block, wanted);
    const u64 start = index_.offset_of(block);
    const u64 end = std::min(wanted.end, start + index_.length_of(block));
    const u8* const data = loaded.job.codec.out_buf;
    u8* const dest = wanted.dest != nullptr ? wanted.dest_of(done) : nullptr;
    const bool is_direct = dest != nullptr && data == dest && !loaded.finished.buf;
    status fault = judge(loaded);
    if (fault != status::done && !(skips_damage && is_damage(fault))) return fault;
    if (dest != nullptr && !is_direct) {
        const usize size = static_cast<usize>(end - done);
        if (data != nullptr)
            std::memcpy(dest, data + (done - start), size);
        else
            std::memset(dest, 0, size);
    }
    done = end;
    if (fault == status::done && loaded.is_summed) {
        loaded.is_summed = false;
        fault = add_sum(block, loaded.sum);
    }
    if (is_direct) { // the block is in the caller's memory: later calls can't use it
        coder_->pop();
        ++first_;
    }
    return fault;
}

ordered_block& file_reader::load(u32 block, const request& wanted)
{
    if (coder_->size() != 0 && (block < first_ || block >= next_)) coder_->drop_all();
    for (; coder_->size() != 0 && first_ != block; ++first_) {
        coder_->front();
        coder_->pop();
    }
    if (coder_->size() == 0) first_ = next_ = block;
    const file_layout& layout = index_.layout();
    const u64 last = wanted.reads_ahead ? layout.block_count - 1
                                        : (wanted.end - 1) / layout.parameters.block_size();
    while (!coder_->full() && next_ <= last) submit(next_++, wanted);
    return coder_->front();
}

void file_reader::submit(u32 block, const request& wanted)
{
    ordered_block& next = coder_->next();
    fill(next, block, wanted);
    if (next.fault.what == status::done)
        coder_->submit();
    else
        coder_->submit_finished();
}

void file_reader::fill(ordered_block& next, u32 block, const request& wanted)
{
    block_job& job = next.job;
    job.mode = direction::decompress;
    job.set_parameters(index_.layout().parameters);
    job.block_index = block;
    next.fault.block = block;
    const block_place* const place = index_.find(block);
    if (place == nullptr) {
        next.fault.what = index_.missing_fault(next.fault.offset);
        return;
    }
    job.codec.out_len = static_cast<u32>(index_.length_of(block));
    next.fault.offset = place->offset;
    next.fault.what = read_into(next, *place);
    if (next.fault.what != status::done) return;
    next.is_summed = index_.seal() && !place->is_summed;
    const u64 start = index_.offset_of(block);
    if (wanted.dest != nullptr && wanted.covers(start, job.codec.out_len))
        job.codec.out_buf = wanted.dest_of(start);
}

status file_reader::read_into(ordered_block& next, const block_place& place)
{
    codec_job& codec = next.job.codec;
    codec.in_len = place.size;
    if (file_.image != nullptr) {
        codec.in_buf = file_.image + place.offset;
        return status::done;
    }
    next.job.in_alloc = coder_->buffers.take(place.size);
    if (!next.job.in_alloc) return status::no_memory;
    codec.in_buf = next.job.in_alloc.get();
    return read_bytes(place, next.job.in_alloc.get(), next.fault);
}

status file_reader::read_bytes(const block_place& place, u8* dest, notice& fault) const
{
    usize got = 0;
    fault.offset = place.offset;
    fault.cause = file_.read(file_.context, place.offset, dest, place.size, got);
    if (fault.cause != 0) return status::read_failed;
    if (got == place.size) return status::done;
    fault.wanted = place.size;
    fault.got = got;
    return status::truncated; // the file has become shorter
}

status file_reader::judge(ordered_block& loaded)
{
    find_fault(loaded);
    if (loaded.fault.what != status::done && !loaded.is_reported) watcher_.report(loaded.fault);
    loaded.is_reported = true;
    return loaded.fault.what;
}

status file_reader::add_sum(u32 block, u32 sum)
{
    block_place& place = *index_.find(block);
    if (place.is_summed) return status::done;
    place.is_summed = true;
    const u64 end = index_.offset_of(block) + index_.length_of(block);
    sum_ ^= combine_crc32(sum, 0, original_size() - end);
    return --unsummed_ == 0 ? check_seal() : status::done;
}

status file_reader::check_seal()
{
    if (!index_.seal() || *index_.seal() == sum_) return status::done;
    return watcher_.report({.what = status::checksum_mismatch,
                            .offset = file_.size - seal_bytes,
                            .wanted = *index_.seal(),
                            .got = sum_});
}

} // namespace quarnex
