// common/object_array.h - an array of objects that stay in place; the array can be moved
#pragma once

#include "common/owned_array.h"

#include <new>
#include <utility>

namespace quarnex {

/// Objects constructed in place, in memory from an allocator.
template <class T>
class object_array {
  public:
    object_array() = default;
    object_array(object_array&& other) noexcept
        : memory_(std::move(other.memory_)), size_(std::exchange(other.size_, 0))
    {
    }
    object_array& operator=(object_array&& other) noexcept
    {
        std::swap(memory_, other.memory_);
        std::swap(size_, other.size_);
        return *this;
    }
    ~object_array()
    {
        while (size_ != 0) (*this)[--size_].~T();
    }

    /// Constructs `count` objects by T().  Returns false without memory.  Called once.
    [[nodiscard]] bool make(const allocator& source, u32 count)
    {
        memory_ = make_array<storage>(source, count);
        if (!memory_) return false;
        for (; size_ < count; ++size_) new (&memory_[size_]) T();
        return true;
    }

    u32 size() const { return size_; }
    T& operator[](usize index) { return *std::launder(reinterpret_cast<T*>(&memory_[index])); }

  private:
    struct alignas(T) storage {
        unsigned char bytes[sizeof(T)];
    };
    owned_array<storage> memory_;
    u32 size_ = 0;
};

} // namespace quarnex
