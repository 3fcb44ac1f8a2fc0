#include "pipeline/ordered_coder.h"

#include "format/checksum.h"
#include "format/filters.h"

#include <algorithm>

namespace quarnex {
namespace {

/// Filters and encodes a block, or decodes it, and computes the sum of the original.
void code(buffer_pool& buffers, scratch& memory, ordered_block& block)
{
    block_job& job = block.job;
    const bool compresses = job.mode == direction::compress;
    if (compresses) {
        u8* const original = job.in_alloc.get();
        if (block.is_summed) block.sum = crc32(0, original, job.codec.in_len);
        run_filter(job.filter_flags, {original, job.codec.in_len}, filter_use::apply);
    }
    u8* const dest = job.codec.out_buf;
    block.result = code_block(buffers, memory, job, block.finished);
    if (block.result.status == block_status::uncoded) {
        // No memory for the codec: free the idle buffers and try again.
        block.finished = {};
        job.codec.out_buf = dest;
        buffers.free_idle();
        block.result = code_block(buffers, memory, job, block.finished);
    }
    if (block.result.status != block_status::done)
        block.fault.what = status::no_memory;
    else if (!compresses && block.is_summed)
        block.sum = crc32(0, job.codec.out_buf, job.codec.out_len);
}

} // namespace

void find_fault(ordered_block& decoded)
{
    notice& fault = decoded.fault;
    const codec_job& codec = decoded.job.codec;
    if (fault.what != status::done || decoded.job.mode == direction::compress) return;
    if (decoded.result.produced != codec.out_len) {
        fault.what = status::block_short;
        fault.wanted = codec.out_len;
        fault.got = decoded.result.produced;
    } else if (!decoded.result.exact_end) {
        fault.what = status::inexact_end;
    }
}

ordered_coder::ordered_coder(const allocator& source, u32 threads, u32 blocks, u32 spare)
    : thread_count(threads), capacity(blocks),
      buffers(source, usize{blocks} + 1, coder_buffers(threads, blocks + spare)), source_(source),
      memory_(source)
{
}

ordered_coder::~ordered_coder()
{
    drop_all();
    end_threads();
}

status ordered_coder::start()
{
    if (!ring_.make(source_, capacity) || !threads_.make(source_, thread_count))
        return status::no_memory;
    const auto work = [](void* coder) { static_cast<ordered_coder*>(coder)->run_worker(); };
    for (u32 i = 0; i < thread_count; ++i) {
        if (!threads_[i].start(work, this)) return status::no_thread;
    }
    return status::done;
}

ordered_block& ordered_coder::next()
{
    ordered_block& block = slot_of(tail_).block;
    block = {};
    return block;
}

void ordered_coder::submit()
{
    if (thread_count != 0) return append(false);
    code(buffers, memory_, slot_of(tail_).block);
    append(true);
}

void ordered_coder::submit_finished()
{
    append(true);
}

void ordered_coder::append(bool is_finished)
{
    scoped_lock lock(mutex_);
    slot_of(tail_).is_finished = is_finished;
    submitted_ = ++tail_;
    work_.notify_one();
}

ordered_block& ordered_coder::front()
{
    slot& oldest = slot_of(head_);
    scoped_lock lock(mutex_);
    while (!oldest.is_finished) finished_.wait(mutex_);
    return oldest.block;
}

void ordered_coder::pop()
{
    slot_of(head_).block = {};
    scoped_lock lock(mutex_);
    ++head_;
    next_to_code_ = std::max(next_to_code_, head_); // the slot can be used again
}

void ordered_coder::drop_all()
{
    {
        scoped_lock lock(mutex_);
        while (next_to_code_ < submitted_) slot_of(next_to_code_++).is_finished = true;
    }
    while (size() != 0) {
        front();
        pop();
    }
}

void ordered_coder::run_worker()
{
    scratch memory(source_);
    for (;;) {
        slot* taken = nullptr;
        {
            scoped_lock lock(mutex_);
            while (next_to_code_ == submitted_ && !is_ending_) work_.wait(mutex_);
            if (next_to_code_ == submitted_) return;
            taken = &slot_of(next_to_code_++);
            if (taken->is_finished) continue;
        }
        code(buffers, memory, taken->block);
        scoped_lock lock(mutex_);
        taken->is_finished = true;
        finished_.notify_one();
    }
}

void ordered_coder::end_threads()
{
    {
        scoped_lock lock(mutex_);
        is_ending_ = true;
        work_.notify_all();
    }
    for (u32 i = 0; i < threads_.size(); ++i) threads_[i].join();
}

} // namespace quarnex
