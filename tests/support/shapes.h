// support/shapes.h - test data of many kinds, the same on every machine
#pragma once

#include "common/types.h"

#include <algorithm>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace quarnex::test {

using bytes = std::vector<u8>;

/// Returns the characters of a text, without a NUL.
inline bytes bytes_of(std::string_view text)
{
    return {text.begin(), text.end()};
}

/// Returns the concatenation of all parts.
inline bytes joined(std::initializer_list<bytes> parts)
{
    usize size = 0;
    for (const bytes& part : parts) size += part.size();
    bytes all;
    all.reserve(size);
    for (const bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

/// Returns `size` bytes of `data` from `offset` on, or as many as there are.
inline bytes slice(const bytes& data, usize offset, usize size)
{
    const auto begin = data.begin() + static_cast<std::ptrdiff_t>(std::min(offset, data.size()));
    const usize left = static_cast<usize>(data.end() - begin);
    return {begin, begin + static_cast<std::ptrdiff_t>(std::min(size, left))};
}

/// Returns whether `part` is in `content` at `offset`.
inline bool is_part(const bytes& part, const bytes& content, usize offset = 0)
{
    return offset <= content.size() && part.size() <= content.size() - offset &&
           std::equal(part.begin(), part.end(),
                      content.begin() + static_cast<std::ptrdiff_t>(offset));
}

/// A small, fast, seeded generator of pseudo-random numbers.
class random_source {
  public:
    explicit random_source(u64 seed) : state_(seed * 0x9E3779B97F4A7C15U + 1) {}
    u32 next();
    /// Returns a number from 0 to limit - 1.
    u32 below(u32 limit) { return static_cast<u32>(u64{next()} * limit >> 32); }

  private:
    u64 state_;
};

/// A kind of data.
struct shape {
    std::string name;
    bytes (*make)(usize size, u64 seed);
};

/// Returns all kinds: random bytes, zeros, runs, short and long periods, words of a text,
/// fixed-width records, machine-code-like bytes, Fibonacci and Thue-Morse words, a de Bruijn
/// sequence, mixtures.
const std::vector<shape>& all_shapes();

/// Returns the shape `name`, which must exist.
const shape& find_shape(const std::string& name);

/// Returns `size` bytes that are coded fast: each block of 1 MiB is `text_size` bytes of text
/// that differ from block to block, then zeros.
bytes text_in_each_block(usize size, usize text_size, u64 seed);

} // namespace quarnex::test
