#include "pipeline/file_writer.h"

#include "common/bytes.h"
#include "format/checksum.h"
#include "pipeline/memory_needs.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace quarnex {

file_writer::file_writer(const allocator& source, const byte_sink& file, const listener& watcher,
                         const file_parameters& parameters, u32 threads, bool seals,
                         u64 original_size)
    : file_(file), watcher_(watcher), parameters_(parameters), seals_(seals),
      declared_size_(original_size),
      threads_(useful_threads(threads, count_blocks(original_size, block_size()))),
      coder_(source, threads_, writer_capacity(threads_), 1)
{
}

status file_writer::fail(const notice& fault)
{
    failure_ = fault.what;
    return watcher_.report(fault);
}

status file_writer::fail_to_write(u64 offset, int error)
{
    if (error == sink_is_full) return fail({.what = status::too_small, .offset = offset});
    return fail({.what = status::write_failed, .offset = offset, .cause = error});
}

status file_writer::open(u64 memory_limit)
{
    const u64 length = std::min(block_size(), declared_size_);
    const u64 needed = writer_memory(parameters_, length, threads_);
    if (needed > memory_limit)
        return fail({.what = status::over_limit, .wanted = needed, .got = memory_limit});
    if (const status started = coder_.start(); started != status::done)
        return fail({.what = started});
    return status::done;
}

status file_writer::begin()
{
    return declared_size_ != unknown_size ? write_header() : status::done;
}

status file_writer::write(const u8* src, usize size)
{
    if (failure_ == status::done && size > left()) return status::bad_argument;
    while (size != 0) {
        u8* dest = nullptr;
        usize room = 0;
        if (const status lent = lend(dest, room); lent != status::done) return lent;
        const usize piece = std::min(size, room);
        std::memcpy(dest, src, piece);
        src += piece;
        size -= piece;
        if (const status appended = advance(piece); appended != status::done) return appended;
    }
    return failure_;
}

status file_writer::lend(u8*& dest, usize& room)
{
    lent_ = 0;
    if (failure_ != status::done) return failure_;
    if (left() == 0) return status::bad_argument;
    if (const status started = start_block(); started != status::done) return started;
    lent_ = static_cast<u32>(std::min(block_size() - filled_, left()));
    dest = filling_.get() + filled_;
    room = lent_;
    return status::done;
}

status file_writer::advance(usize size)
{
    if (failure_ != status::done) return failure_;
    if (size > lent_) return status::bad_argument;
    lent_ = 0;
    filled_ += static_cast<u32>(size);
    if (filled_ != block_size()) return status::done;
    if (const status room = make_room(); room != status::done) return room;
    submit_block();
    return failure_;
}

status file_writer::start_block()
{
    if (filling_) return status::done;
    const usize length = static_cast<usize>(std::min(block_size(), left()));
    filling_ = coder_.buffers.take(length + in_slack);
    return filling_ ? status::done : fail({.what = status::no_memory, .block = submitted_});
}

status file_writer::make_room()
{
    while (coder_.full()) {
        if (const status written = write_front(); written != status::done) return written;
    }
    return status::done;
}

void file_writer::submit_block()
{
    std::memset(filling_.get() + filled_, 0, in_slack);
    ordered_block& next = coder_.next();
    next.job.mode = direction::compress;
    next.job.set_parameters(parameters_);
    next.fault.block = submitted_;
    next.job.block_index = submitted_++;
    next.job.codec.in_buf = filling_.get();
    next.job.codec.in_len = filled_;
    next.job.in_alloc = std::move(filling_);
    next.job.codec.out_buf = find_place();
    next.is_summed = seals_;
    next.length = filled_;
    original_size_ += std::exchange(filled_, 0);
    coder_.submit();
}

/// Returns where to encode the block being filled, directly into a file in memory; null if the file
/// isn't in memory, earlier blocks are unwritten, or the encoder's slack doesn't fit.
u8* file_writer::find_place() const
{
    const usize needed = record_head_bytes + filled_ + out_slack;
    if (file_.image == nullptr || coder_.size() != 0 || position_ > file_.capacity ||
        file_.capacity - position_ < needed)
        return nullptr;
    return file_.image + position_ + record_head_bytes;
}

status file_writer::write_raw(const u8* payload, usize size, usize length, const u32* sum)
{
    lent_ = 0;
    if (failure_ != status::done) return failure_;
    const bool is_bad =
        filled_ != 0 || length == 0 || length > block_size() || size > length || length > left();
    if (is_bad) return status::bad_argument;
    if (const status room = make_room(); room != status::done) return room;
    filling_.reset(); // lent, but not filled
    ordered_block& next = coder_.next();
    next.is_summed = seals_ && sum == nullptr;
    if (sum != nullptr) next.sum = *sum;
    if (!fill_raw(next, payload, static_cast<u32>(size), static_cast<u32>(length)))
        return fail({.what = status::no_memory, .block = submitted_});
    original_size_ += length;
    ++submitted_;
    is_ended_ = length < block_size();
    if (next.is_summed)
        coder_.submit();
    else
        coder_.submit_finished();
    return failure_;
}

bool file_writer::fill_raw(ordered_block& next, const u8* payload, u32 size, u32 length)
{
    next.length = length;
    next.result.produced = length;
    next.fault.block = submitted_;
    next.raw_size = static_cast<u32>(record_head_bytes) + size;
    next.raw_record = coder_.buffers.take(next.raw_size);
    if (!next.raw_record) return false;
    u8* const payload_copy = next.raw_record.get() + record_head_bytes;
    pack_record_head(next.raw_record.get(), {size, 0});
    std::memcpy(payload_copy, payload, size);
    next.job.mode = direction::decompress;
    next.job.set_parameters(parameters_);
    next.job.block_index = submitted_;
    next.job.codec.in_buf = payload_copy;
    next.job.codec.in_len = size;
    next.job.codec.out_len = length;
    return true;
}

status file_writer::write_front()
{
    ordered_block& coded = coder_.front();
    find_fault(coded);
    if (coded.fault.what != status::done) return fail(coded.fault);
    const bool is_raw = coded.raw_record != nullptr;
    const u8* const record =
        is_raw ? coded.raw_record.get() : coded.job.codec.out_buf - record_head_bytes;
    const status written = write_bytes(record, is_raw ? coded.raw_size : coded.finished.size);
    if (written != status::done) return written;
    if (seals_) sum_ = combine_crc32(sum_, coded.sum, coded.length);
    written_size_ += coded.length;
    coder_.pop();
    const u64 total = declared_size_ != unknown_size ? declared_size_ : 0;
    const status reported = watcher_.report_progress(written_size_, total);
    if (reported != status::done) failure_ = reported;
    return reported;
}

status file_writer::write_bytes(const u8* src, usize size)
{
    const int error = file_.write(file_.context, position_, src, size);
    if (error != 0) return fail_to_write(position_, error);
    position_ += size;
    return status::done;
}

status file_writer::write_header()
{
    const u64 size = declared_size_ != unknown_size ? declared_size_ : original_size_;
    const auto header = pack_file_header({size, parameters_});
    const int error = file_.write(file_.context, 0, header.data(), header.size());
    return error == 0 ? status::done : fail_to_write(0, error);
}

status file_writer::finish()
{
    if (failure_ != status::done) return failure_;
    if (declared_size_ != unknown_size && original_size_ + filled_ != declared_size_)
        return status::bad_argument;
    if (filled_ != 0 || submitted_ == 0) { // an empty file has one empty block
        if (const status started = start_block(); started != status::done) return started;
        if (const status room = make_room(); room != status::done) return room;
        submit_block();
    }
    is_ended_ = true;
    while (coder_.size() != 0) {
        if (const status written = write_front(); written != status::done) return written;
    }
    if (seals_) {
        std::array<u8, seal_bytes> seal;
        store_u32(seal.data(), sum_);
        if (const status written = write_bytes(seal.data(), seal.size()); written != status::done)
            return written;
    }
    return declared_size_ == unknown_size ? write_header() : status::done;
}

} // namespace quarnex
