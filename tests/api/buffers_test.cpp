#include "api/api_fixture.h"

#include <atomic>
#include <cstdlib>

namespace quarnex::test {
namespace {

TEST(api_buffers, every_cell_round_trips_with_any_number_of_threads)
{
    const bytes data = find_shape("mixture").make(70000, 3);
    for (u32 method = 1; method <= 5; ++method) {
        for (u32 level = 0; level <= 9; ++level) {
            const qrx_params params = params_of(method, level);
            const bytes image = compressed(data, params, QRX_SEAL);
            EXPECT_EQ(compressed(data, params, QRX_SEAL, 2), image);
            EXPECT_LT(image.size(), data.size());
            recorded_options options(level % 3);
            EXPECT_EQ(restored(image, data.size(), options), data) << method << level;
        }
    }
}

TEST(api_buffers, several_blocks_are_the_same_with_any_number_of_threads)
{
    const bytes data = sample_data(3);
    const qrx_params params = params_of(1, 1);
    const bytes image = compressed(data, params, QRX_SEAL);
    for (const u32 threads : {0U, 1U, 2U, 5U}) {
        EXPECT_EQ(compressed(data, params, QRX_SEAL, threads), image);
        recorded_options options(threads);
        EXPECT_EQ(restored(image, data.size(), options), data);
        EXPECT_EQ(options.events.size(), 0U);
        EXPECT_EQ(options.done, data.size());
        EXPECT_EQ(options.total, data.size());
        EXPECT_EQ(options.progress_calls, 4U);
    }
}

TEST(api_buffers, the_seal_is_the_crc32_of_the_original)
{
    const bytes data = sample_data(2);
    const bytes plain = compressed(data, params_of(2, 0));
    const bytes sealed = compressed(data, params_of(2, 0), QRX_SEAL, 2);
    ASSERT_EQ(sealed.size(), plain.size() + 4);
    EXPECT_EQ(slice(sealed, 0, plain.size()), plain);
    const u32 sum = qrx_crc32(0, data.data(), data.size());
    for (usize i = 0; i < 4; ++i)
        EXPECT_EQ(sealed[plain.size() + i], static_cast<u8>(sum >> (8 * i)));
}

TEST(api_buffers, empty_input_is_a_file_with_one_empty_record)
{
    const bytes image = compressed({}, params_of(3, 3));
    EXPECT_EQ(image.size(), 32U + 5U);
    recorded_options options;
    EXPECT_EQ(restored(image, 0, options), bytes{});
    const bytes sealed = compressed({}, params_of(3, 3), QRX_SEAL);
    EXPECT_EQ(slice(sealed, 37, 4), bytes(4)) << "the CRC-32 of nothing";
    EXPECT_EQ(restored(sealed, 0, options), bytes{});
    bytes wrong = sealed;
    wrong.back() = 1;
    restored(wrong, 0, options, QRX_CHECKSUM_MISMATCH);
}

TEST(api_buffers, the_bound_holds_for_data_that_does_not_compress)
{
    const bytes data = find_shape("random").make(2 * mib + 1, 5);
    const qrx_params params = params_of(5, 0);
    const usize bound = qrx_compress_bound(&params, data.size());
    const usize needed = 32 + 3 * 5 + data.size() + 4;
    EXPECT_GE(bound, needed);
    EXPECT_LE(bound, needed + QRX_CODEC_SLACK);
    for (const u32 threads : {0U, 2U})
        EXPECT_EQ(compressed(data, params, QRX_SEAL, threads).size(), needed);
    EXPECT_GE(qrx_compress_bound(&params, 0), 32U + 5U + 4U);
    EXPECT_EQ(qrx_compress_bound(&params, SIZE_MAX), 0U);
    const qrx_params bad = params_of(6, 0);
    EXPECT_EQ(qrx_compress_bound(&bad, 1), 0U);
}

TEST(api_buffers, the_exact_capacity_is_enough)
{
    const bytes data = sample_data(2);
    const qrx_params params = params_of(2, 1);
    const bytes image = compressed(data, params, QRX_SEAL);
    for (const usize more : {0U, 1U, 4000U, 4096U, 5000U}) {
        recorded_options options(0, QRX_SEAL);
        bytes dest(image.size() + more, 0xA5);
        usize size = 0;
        ASSERT_EQ(qrx_compress(&params, &options, data.data(), data.size(), dest.data(),
                               dest.size(), &size),
                  QRX_OK);
        EXPECT_TRUE(slice(dest, 0, size) == image);
    }
}

TEST(api_buffers, a_destination_that_is_too_small_is_refused)
{
    const bytes data = sample_data(1);
    const qrx_params params = params_of(1, 0);
    const bytes image = compressed(data, params);
    for (const usize capacity : {usize{0}, usize{31}, usize{36}, image.size() - 1}) {
        for (const u32 threads : {0U, 2U}) {
            recorded_options options(threads);
            bytes dest(capacity + 1, 0xA5);
            usize size = 0;
            EXPECT_EQ(qrx_compress(&params, &options, data.data(), data.size(), dest.data(),
                                   capacity, &size),
                      QRX_BUFFER_TOO_SMALL);
            EXPECT_EQ(dest.back(), 0xA5);
            EXPECT_EQ(options.found(), std::vector{QRX_BUFFER_TOO_SMALL});
        }
    }
    recorded_options options;
    restored(image, data.size() - 1, options, QRX_BUFFER_TOO_SMALL);
    EXPECT_EQ(restored(image, data.size() + 1, options), data);
}

TEST(api_buffers, the_size_of_the_original_comes_from_the_header)
{
    const bytes data = sample_data(0, 100);
    const bytes image = compressed(data, params_of(1, 0));
    u64 size = 0;
    EXPECT_EQ(qrx_decompressed_size(image.data(), 32, &size), QRX_OK);
    EXPECT_EQ(size, 100U);
    EXPECT_EQ(qrx_decompressed_size(image.data(), 31, &size), QRX_TRUNCATED);
    EXPECT_EQ(qrx_decompressed_size(image.data(), 0, &size), QRX_NOT_QRX);
    EXPECT_EQ(qrx_decompressed_size(data.data(), data.size(), &size), QRX_NOT_QRX);
    EXPECT_EQ(qrx_decompressed_size(nullptr, 0, &size), QRX_BAD_ARGUMENT);
}

TEST(api_buffers, damage_ends_the_valid_bytes)
{
    const bytes data = sample_data(3);
    const bytes image = compressed(data, params_of(5, 3), QRX_SEAL);
    const reader_ptr reader = open_image(image);
    bytes damaged = image;
    const block_in_image place = block_info_of(reader.get(), 2);
    damaged[place.offset + place.payload_size / 2] ^= 0x10;
    for (const u32 threads : {0U, 2U}) {
        recorded_options options(threads);
        bytes dest(data.size());
        usize size = 0;
        const qrx_status result = qrx_decompress(&options, damaged.data(), damaged.size(),
                                                 dest.data(), dest.size(), &size);
        EXPECT_TRUE(result == QRX_BLOCK_SHORT || result == QRX_INEXACT_END);
        EXPECT_EQ(size, 2 * mib);
        EXPECT_EQ(slice(dest, 0, size), slice(data, 0, size));
        ASSERT_EQ(options.events.size(), 1U);
        EXPECT_EQ(options.events[0].block, 2U);
        EXPECT_EQ(options.events[0].offset, place.offset);
    }
    recorded_options keeping(2, QRX_KEEP_DAMAGED);
    const bytes kept = restored(damaged, data.size(), keeping);
    EXPECT_EQ(slice(kept, 0, 2 * mib), slice(data, 0, 2 * mib));
    EXPECT_EQ(slice(kept, 3 * mib, mib), slice(data, 3 * mib, mib));
    EXPECT_EQ(keeping.events.size(), 1U);
}

TEST(api_buffers, trailing_bytes_are_reported)
{
    const bytes data = sample_data(0);
    const bytes image = compressed(data, params_of(3, 3));
    for (const usize added : {1U, 2U, 3U, 5U, 100U}) {
        bytes longer = image;
        longer.resize(image.size() + added, 'x');
        recorded_options options;
        EXPECT_EQ(restored(longer, data.size(), options, QRX_TRAILING_BYTES), data);
        ASSERT_EQ(options.events.size(), 1U);
        EXPECT_EQ(options.events[0].offset, image.size());
        EXPECT_EQ(options.events[0].got, added);
        recorded_options keeping(0, QRX_KEEP_DAMAGED);
        EXPECT_EQ(restored(longer, data.size(), keeping), data);
    }
    bytes sealed = image;
    sealed.resize(image.size() + 4, 'x'); // a seal that is wrong
    recorded_options options;
    EXPECT_EQ(restored(sealed, data.size(), options, QRX_CHECKSUM_MISMATCH), data);
}

TEST(api_buffers, progress_cancels)
{
    const bytes data = sample_data(3);
    const qrx_params params = params_of(1, 0);
    const bytes image = compressed(data, params);
    bytes dest(qrx_compress_bound(&params, data.size()));
    for (const u32 threads : {0U, 2U}) {
        for (u32 call = 1; call <= 4; ++call) {
            recorded_options options(threads);
            options.cancel_at = call;
            usize size = 0;
            EXPECT_EQ(qrx_compress(&params, &options, data.data(), data.size(), dest.data(),
                                   dest.size(), &size),
                      QRX_CANCELLED);
            options.progress_calls = 0;
            EXPECT_EQ(qrx_decompress(&options, image.data(), image.size(), dest.data(), data.size(),
                                     &size),
                      QRX_CANCELLED);
            EXPECT_EQ(size, std::min<usize>(call * mib, data.size()));
            EXPECT_TRUE(options.events.empty());
        }
    }
}

TEST(api_buffers, a_memory_limit_is_checked_first)
{
    const bytes data = sample_data(2);
    const qrx_params params = params_of(3, 3);
    const bytes image = compressed(data, params);
    recorded_options options(1);
    bytes dest(qrx_compress_bound(&params, data.size()));
    usize size = 0;
    options.memory_limit = qrx_compress_memory(&params, 1);
    EXPECT_EQ(
        qrx_compress(&params, &options, data.data(), data.size(), dest.data(), dest.size(), &size),
        QRX_OK);
    options.memory_limit -= 1;
    EXPECT_EQ(
        qrx_compress(&params, &options, data.data(), data.size(), dest.data(), dest.size(), &size),
        QRX_OVER_LIMIT);
    EXPECT_EQ(options.found(), std::vector{QRX_OVER_LIMIT});
    recorded_options single(4); // one block has no work for threads
    single.memory_limit = qrx_compress_memory(&params, 0);
    EXPECT_EQ(qrx_compress(&params, &single, data.data(), 1000, dest.data(), dest.size(), &size),
              QRX_OK);
    single.memory_limit = qrx_decompress_memory(&params, 0);
    restored(slice(dest, 0, size), 1000, single);
    options.memory_limit = 1000;
    restored(image, data.size(), options, QRX_OVER_LIMIT);
    options.memory_limit = qrx_decompress_memory(&params, 1) + 3 * 16;
    EXPECT_EQ(restored(image, data.size(), options), data);
}

/// An allocator that counts.
struct counted_memory {
    qrx_allocator allocator()
    {
        return {[](void* self, usize size) {
                    static_cast<counted_memory*>(self)->add(size);
                    return std::malloc(size);
                },
                [](void* self, void* memory, usize size) {
                    static_cast<counted_memory*>(self)->used -= size;
                    std::free(memory);
                },
                this};
    }

    void add(usize size)
    {
        const usize now = used += size;
        for (usize known = peak; known < now && !peak.compare_exchange_weak(known, now);) continue;
    }

    std::atomic<usize> used{0};
    std::atomic<usize> peak{0};
};

/// A source's read() of an image of type bytes.
int read_image(void* image, u64 offset, void* dest, usize size, usize* got)
{
    const bytes& from = *static_cast<const bytes*>(image);
    std::copy_n(from.begin() + static_cast<std::ptrdiff_t>(offset), size, static_cast<u8*>(dest));
    *got = size;
    return 0;
}

TEST(api_buffers, memory_stays_within_the_bound_when_payloads_differ)
{
    constexpr u32 blocks = 30;
    const bytes noise = find_shape("random").make(mib, 1);
    bytes data(blocks * mib);
    for (usize block = 0; block < blocks; ++block)
        std::copy_n(noise.begin(), block * 7 % 10 * 100000,
                    data.begin() + static_cast<std::ptrdiff_t>(block * mib));
    const qrx_params params = params_of(1, 0);
    bytes image(qrx_compress_bound(&params, data.size()));
    for (const u32 threads : {0U, 1U, 2U, 3U}) {
        counted_memory memory;
        recorded_options options(threads);
        options.allocator = memory.allocator();
        usize size = 0;
        ASSERT_EQ(qrx_compress(&params, &options, data.data(), data.size(), image.data(),
                               image.size(), &size),
                  QRX_OK);
        EXPECT_LE(memory.peak, qrx_compress_memory(&params, threads)) << threads;
        EXPECT_EQ(memory.used, 0U);
        memory.peak = 0;
        {
            const qrx_source source{sizeof source, read_image, size, &image};
            qrx_reader* opened = nullptr;
            ASSERT_EQ(qrx_reader_open_source(&opened, &source, &options), QRX_OK);
            const reader_ptr reader(opened);
            for (usize offset = 0; offset < data.size(); offset += 300000)
                ASSERT_EQ(read_range(reader.get(), offset, 300000), slice(data, offset, 300000));
        }
        EXPECT_LE(memory.peak, qrx_decompress_memory(&params, threads) + blocks * 16) << threads;
        EXPECT_EQ(memory.used, 0U);
    }
}

TEST(api_buffers, bad_arguments_are_refused)
{
    const qrx_params params = params_of(1, 0);
    u8 data[100] = {};
    usize size = 0;
    recorded_options options(QRX_MAX_THREADS + 1);
    EXPECT_EQ(qrx_compress(&params, &options, data, 1, data, 100, &size), QRX_BAD_ARGUMENT);
    options.threads = 0;
    options.flags = 8;
    EXPECT_EQ(qrx_compress(&params, &options, data, 1, data, 100, &size), QRX_BAD_ARGUMENT);
    options.flags = 0;
    options.allocator.allocate = [](void*, usize) -> void* { return nullptr; };
    EXPECT_EQ(qrx_compress(&params, &options, data, 1, data, 100, &size), QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_compress(&params, nullptr, nullptr, 1, data, 100, &size), QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_compress(&params, nullptr, data, 1, nullptr, 100, &size), QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_compress(&params, nullptr, data, 1, data, 100, nullptr), QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_decompress(nullptr, nullptr, 1, data, 100, &size), QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_decompress(nullptr, data, 100, nullptr, 1, &size), QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_decompress(nullptr, data, 100, data, 1, &size), QRX_NOT_QRX);
}

} // namespace
} // namespace quarnex::test
