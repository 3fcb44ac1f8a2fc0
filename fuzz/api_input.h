// fuzz/api_input.h - helpers shared by the fuzz targets of the C interface
#pragma once

#include "fuzz_target.h"
#include "qrx.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <span>

namespace quarnex::fuzz {

inline constexpr usize mib = usize{1} << 20;

/// Returns a size of something in memory, which fits into 32 bits on 32-bit systems.
constexpr usize in_memory(u64 size)
{
    return static_cast<usize>(size);
}

/// Returns a structure of the interface with its size set and all else zero.
template <class Struct>
Struct sized()
{
    Struct made{};
    made.struct_size = sizeof made;
    return made;
}

/// Takes numbers from the start of an input; zeros past its end.
class input_bytes {
  public:
    explicit input_bytes(std::span<const u8> input) : left_(input) {}

    /// Takes `size` bytes as a little-endian number.
    u32 take(usize size = 1)
    {
        u32 number = 0;
        for (usize i = 0; i < size && !left_.empty(); ++i) {
            number |= u32{left_[0]} << (8 * i);
            left_ = left_.subspan(1);
        }
        return number;
    }
    /// Takes the next `size` bytes, or all that are left.
    std::span<const u8> take_bytes(usize size)
    {
        const std::span<const u8> taken = left_.first(std::min(size, left_.size()));
        left_ = left_.subspan(taken.size());
        return taken;
    }
    std::span<const u8> rest() const { return left_; }
    bool empty() const { return left_.empty(); }

  private:
    std::span<const u8> left_;
};

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

/// Returns the image that qrx_compress() makes.
bytes compressed(const qrx_params& params, const bytes& content, bool is_sealed);

} // namespace quarnex::fuzz
