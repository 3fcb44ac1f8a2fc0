// fuzz/input_bytes.h - takes numbers and bytes from an input
#pragma once

#include "common/types.h"

#include <algorithm>
#include <span>

namespace quarnex::fuzz {

/// Takes numbers and bytes from the start of an input; numbers past its end are zero.
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

} // namespace quarnex::fuzz
