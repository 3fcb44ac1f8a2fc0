// fuzz/api_input.h - helpers shared by the fuzz targets of the C interface
#pragma once

#include "fuzz_target.h"
#include "input_bytes.h"
#include "support/handles.h"
#include "support/mib.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <span>

namespace quarnex::fuzz {

using test::codec_ptr;
using test::mib;
using test::reader_ptr;
using test::sized;

/// Returns a size of something in memory, which fits into 32 bits on 32-bit systems.
constexpr usize in_memory(u64 size)
{
    return static_cast<usize>(size);
}

/// An allocator for handles.  Requires that all memory is released with its size, and that no more
/// than `limit` bytes are in use at once.
class counting_allocator {
  public:
    explicit counting_allocator(u64 limit = UINT64_MAX) : limit_(limit) {}
    counting_allocator(const counting_allocator&) = delete;
    counting_allocator& operator=(const counting_allocator&) = delete;
    ~counting_allocator() { require(used_ == 0, "all memory is released"); }

    qrx_allocator get() { return {allocate, release, this}; }

  private:
    /// Precedes the caller's bytes and keeps their alignment.
    struct alignas(alignof(std::max_align_t)) stamp {
        usize size;
    };

    static void* allocate(void* context, size_t size)
    {
        auto& self = *static_cast<counting_allocator*>(context);
        require(size != 0, "an allocation has 1 byte or more");
        require(self.used_.fetch_add(size) + size <= self.limit_, "the memory limit holds");
        auto* const memory = static_cast<stamp*>(std::malloc(sizeof(stamp) + size));
        require(memory != nullptr, "the system has memory");
        memory->size = size;
        return memory + 1;
    }

    static void release(void* context, void* memory, size_t size)
    {
        require(memory != nullptr, "null is not released");
        stamp* const made = static_cast<stamp*>(memory) - 1;
        require(made->size == size, "memory is released with its size");
        static_cast<counting_allocator*>(context)->used_ -= size;
        std::free(made);
    }

    const u64 limit_;
    std::atomic<u64> used_{0};
};

inline bool is_status(qrx_status status)
{
    return status >= QRX_OK && status <= QRX_TRAILING_BYTES;
}

/// Makes `content` longer by repeating it, up to `size` bytes.
inline bytes repeated(std::span<const u8> content, usize size)
{
    bytes all(content.begin(), content.end());
    all.reserve(std::max(size, all.size()));
    while (!all.empty() && all.size() < size) {
        const usize piece = std::min(all.size(), size - all.size());
        all.insert(all.end(), all.begin(), all.begin() + static_cast<std::ptrdiff_t>(piece));
    }
    return all;
}

/// Returns settled parameters from 6 bytes of an input.
qrx_params take_params(input_bytes& input);
/// Returns the 6 bytes of parameters that take_params() reads.
bytes params_input(u8 method, u8 level, u8 filter = 0);
/// Returns the parameters that take_params() makes from these bytes.
qrx_params params_of(u8 method, u8 level, u8 filter);

/// The two low bits of a control byte: how far the content is repeated.  0: not at all, 1: to
/// 1 MiB + 5 bytes, 2: to 2 MiB, 3: to 2 MiB + 100 bytes.
inline constexpr u8 repeats_mask = 3;

/// Returns the rest of an input as content, repeated as `control` requests.  For slow levels it is
/// not repeated.
bytes take_content(const input_bytes& input, const qrx_params& params, u8 control);

/// Returns the image that qrx_compress() makes.
bytes compressed(const qrx_params& params, const bytes& content, bool is_sealed);

/// Opens an image in memory, which must outlive the reader.  Requires success.
reader_ptr open_image(const bytes& image, u32 flags = 0);

qrx_info info_of(const qrx_reader& reader);

} // namespace quarnex::fuzz
