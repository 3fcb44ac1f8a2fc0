// api/api_fixture.h - C++ wrappers of the C interface for tests
#pragma once

#include "qrx.h"
#include "support/mib.h"
#include "support/qrx_file.h"
#include "support/shapes.h"

#include "support/temp_dir.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace quarnex::test {

inline qrx_params params_of(u32 method, u32 level)
{
    qrx_params params{};
    params.struct_size = sizeof params;
    params.method = method;
    params.level = level;
    params.block_mib = 1;
    return params;
}

/// Options whose callbacks record events and count progress.
struct recorded_options : qrx_options {
    explicit recorded_options(u32 thread_count = 0, u32 flag_set = 0) : qrx_options{}
    {
        struct_size = sizeof(qrx_options);
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

struct close_reader {
    void operator()(qrx_reader* reader) const { qrx_reader_close(reader); }
};
struct close_writer {
    void operator()(qrx_writer* writer) const { qrx_writer_close(writer); }
};
struct free_codec {
    void operator()(qrx_codec* codec) const { qrx_codec_free(codec); }
};
using reader_ptr = std::unique_ptr<qrx_reader, close_reader>;
using writer_ptr = std::unique_ptr<qrx_writer, close_writer>;
using codec_ptr = std::unique_ptr<qrx_codec, free_codec>;

/// Returns `blocks` blocks of 1 MiB and some more bytes: compressible, and different in each block.
inline bytes sample_data(u32 blocks, usize more = 12345)
{
    bytes data = find_shape("text").make(blocks * mib + more, 7);
    return data;
}

inline bytes compressed(const bytes& data, const qrx_params& params, u32 flags = 0, u32 threads = 0)
{
    recorded_options options(threads, flags);
    bytes image(qrx_compress_bound(&params, data.size()));
    usize size = 0;
    EXPECT_EQ(qrx_compress(&params, &options, data.data(), data.size(), image.data(), image.size(),
                           &size),
              QRX_OK);
    image.resize(size);
    return image;
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

inline bytes slice(const bytes& data, usize offset, usize size)
{
    const usize from = std::min(offset, data.size());
    const usize to = std::min(from + size, data.size());
    return {data.begin() + static_cast<std::ptrdiff_t>(from),
            data.begin() + static_cast<std::ptrdiff_t>(to)};
}

inline qrx_info info_of(const qrx_reader* reader)
{
    qrx_info info{};
    info.struct_size = sizeof info;
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
    qrx_block_info info{};
    info.struct_size = sizeof info;
    EXPECT_EQ(qrx_reader_block_info(reader, block, &info), QRX_OK);
    return {static_cast<usize>(info.original_offset),
            static_cast<usize>(info.length),
            static_cast<usize>(info.offset),
            static_cast<usize>(info.payload_size),
            info.is_stored,
            info.is_found};
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
