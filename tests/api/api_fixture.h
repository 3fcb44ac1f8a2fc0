// api/api_fixture.h - C++ wrappers of the C interface for tests
#pragma once

#include "support/handles.h"
#include "support/mib.h"
#include "support/qrx_file.h"
#include "support/shapes.h"
#include "support/temp_dir.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <vector>

namespace quarnex::test {

inline qrx_params params_of(u32 method, u32 level)
{
    auto params = sized<qrx_params>();
    params.method = method;
    params.level = level;
    params.block_mib = 1;
    return params;
}

/// Returns the same with small tables, which are fast and need little memory.
inline qrx_params small_params_of(u32 method, u32 level)
{
    qrx_params params = params_of(method, level);
    params.hash_bits = 12;
    params.chain_bits = 2;
    return params;
}

/// Options whose callbacks record events and count progress.
struct recorded_options : qrx_options {
    explicit recorded_options(u32 thread_count = 0, u32 flag_set = 0)
        : qrx_options(sized<qrx_options>())
    {
        threads = thread_count;
        flags = flag_set;
        event = [](void* self, const qrx_event* happened) {
            static_cast<recorded_options*>(self)->events.push_back(*happened);
        };
        progress = [](void* self, u64 bytes_done, u64 bytes_total) {
            auto& options = *static_cast<recorded_options*>(self);
            options.done = bytes_done;
            options.total = bytes_total;
            return ++options.progress_calls == options.cancel_at ? 1 : 0;
        };
        context = this;
    }
    recorded_options(const recorded_options&) = delete;
    recorded_options& operator=(const recorded_options&) = delete;

    /// The statuses of all events.
    std::vector<qrx_status> found() const
    {
        std::vector<qrx_status> all;
        for (const qrx_event& each : events) all.push_back(each.what);
        return all;
    }

    std::vector<qrx_event> events;
    u32 progress_calls = 0;
    u32 cancel_at = 0; // call that cancels; 0 for none
    u64 done = 0;
    u64 total = 0;
};

/// Returns `blocks` blocks of 1 MiB and some more bytes: compressible, and different in each block.
inline bytes sample_data(u32 blocks, usize more = 12345)
{
    bytes data = find_shape("text").make(blocks * mib + more, 7);
    return data;
}

/// Returns a compressed image, empty on failure.  Expects the status `expected`.
inline bytes compressed(const bytes& data, const qrx_params& params, const qrx_options& options,
                        qrx_status expected = QRX_OK)
{
    bytes image(qrx_compress_bound(&params, data.size()));
    usize size = 0;
    EXPECT_EQ(qrx_compress(&params, &options, data.data(), data.size(), image.data(), image.size(),
                           &size),
              expected);
    image.resize(size);
    return image;
}

inline bytes compressed(const bytes& data, const qrx_params& params, u32 flags = 0, u32 threads = 0)
{
    return compressed(data, params, recorded_options(threads, flags));
}

/// Decompresses an image into a buffer of `capacity` bytes.  Expects the status `expected`.
inline bytes restored(const bytes& image, usize capacity, const qrx_options& options,
                      qrx_status expected = QRX_OK)
{
    bytes data(capacity);
    usize size = capacity + 1;
    EXPECT_EQ(qrx_decompress(&options, image.data(), image.size(), data.data(), capacity, &size),
              expected);
    EXPECT_LE(size, capacity);
    data.resize(std::min(size, capacity));
    return data;
}

/// Opens an image, which must outlive the reader.
inline reader_ptr open_image(const bytes& image, const qrx_options* options = nullptr)
{
    qrx_reader* reader = nullptr;
    EXPECT_EQ(qrx_reader_open_memory(&reader, image.data(), image.size(), options), QRX_OK);
    return reader_ptr(reader);
}

/// Reads a range; expects a status.
inline bytes read_range(qrx_reader* reader, u64 offset, usize size, qrx_status expected = QRX_OK)
{
    bytes data(size);
    usize got = size + 1;
    EXPECT_EQ(qrx_reader_read(reader, offset, data.data(), size, &got), expected);
    EXPECT_LE(got, size);
    data.resize(std::min(got, size));
    return data;
}

inline qrx_info info_of(const qrx_reader* reader)
{
    auto info = sized<qrx_info>();
    EXPECT_EQ(qrx_reader_info(reader, &info), QRX_OK);
    return info;
}

/// qrx_block_info of an image in memory.
struct block_in_image {
    usize original_offset;
    usize length;
    usize offset;
    usize payload_size;
    u32 is_stored;
    u32 is_found;
};

inline block_in_image block_info_of(const qrx_reader* reader, u64 block)
{
    auto info = sized<qrx_block_info>();
    EXPECT_EQ(qrx_reader_block_info(reader, block, &info), QRX_OK);
    return {static_cast<usize>(info.original_offset),
            static_cast<usize>(info.length),
            static_cast<usize>(info.offset),
            static_cast<usize>(info.payload_size),
            info.is_stored,
            info.is_found};
}

/// Returns a sink that accepts writes in any order.
inline qrx_sink sink_to(bytes& image)
{
    return {sizeof(qrx_sink),
            [](void* context, u64 offset, const void* src, usize size) {
                bytes& dest = *static_cast<bytes*>(context);
                const usize start = static_cast<usize>(offset);
                dest.resize(std::max(dest.size(), start + size));
                std::copy_n(static_cast<const u8*>(src), size, dest.data() + start);
                return 0;
            },
            &image};
}

/// A growing file in memory with a qrx_sink; rejects writes out of order.
struct memory_file {
    qrx_sink sink()
    {
        return {sizeof(qrx_sink),
                [](void* self, u64 offset, const void* src, usize size) {
                    return static_cast<memory_file*>(self)->write(offset, src, size);
                },
                this};
    }

    int write(u64 offset, const void* src, usize size)
    {
        if (fails_at == ++calls) return 77;
        const u8* const from = static_cast<const u8*>(src);
        if (offset == 0 && !content.empty()) {
            header_came_last = true;
            std::copy(from, from + size, content.begin());
            return 0;
        }
        if (content.empty()) content.resize(static_cast<usize>(offset));
        EXPECT_EQ(offset, content.size()) << "offsets rise without gaps";
        content.insert(content.end(), from, from + size);
        return 0;
    }

    bytes content;
    bool header_came_last = false;
    u32 calls = 0;
    u32 fails_at = 0; // call that fails; 0 for none
};

} // namespace quarnex::test
