// api/memory_streams.h - the caller's buffers as source and sink
#pragma once

#include "common/byte_stream.h"

#include <algorithm>
#include <cstring>

namespace quarnex {

/// Returns a source that reads `size` bytes at `image`, which must outlive it.
inline byte_source source_of(const u8* image, u64 size)
{
    struct memory {
        static int read(void* context, u64 offset, u8* dest, usize size, usize& got)
        {
            got = size; // callers never read past byte_source::size
            if (size != 0) std::memcpy(dest, static_cast<const u8*>(context) + offset, size);
            return 0;
        }
    };
    return {memory::read, const_cast<u8*>(image), size, image};
}

/// A sink in memory.
struct memory_sink {
    u8* data;
    usize capacity;
    usize size = 0; // bytes written

    byte_sink sink()
    {
        return {[](void* context, u64 offset, const u8* src, usize length) {
                    return static_cast<memory_sink*>(context)->write(offset, src, length);
                },
                this, data, capacity};
    }

  private:
    int write(u64 offset, const u8* src, usize length)
    {
        if (offset > capacity || length > capacity - offset) return sink_is_full;
        if (src != data + offset) std::memcpy(data + offset, src, length);
        size = std::max(size, static_cast<usize>(offset) + length);
        return 0;
    }
};

} // namespace quarnex
