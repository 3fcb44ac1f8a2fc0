#include "api/api_fixture.h"

#include <cstring>

namespace quarnex::test {
namespace {

codec_ptr make_codec(const qrx_params& params)
{
    qrx_codec* codec = nullptr;
    EXPECT_EQ(qrx_codec_new(&codec, &params, nullptr), QRX_OK);
    return codec_ptr(codec);
}

/// Compresses a block into a buffer of the minimum capacity.
bytes payload_of(qrx_codec* codec, const void* block, usize length)
{
    bytes payload(length + QRX_CODEC_SLACK);
    usize size = 0;
    EXPECT_EQ(qrx_codec_compress(codec, block, length, payload.data(), payload.size(), &size),
              QRX_OK);
    EXPECT_LE(size, length);
    payload.resize(size);
    return payload;
}

TEST(api_codec, blocks_round_trip_in_every_cell)
{
    const bytes data = find_shape("mixture").make(60000, 9);
    for (u32 method = 1; method <= 5; ++method) {
        for (u32 level = 0; level <= 9; ++level) {
            qrx_params params = params_of(method, level);
            params.filter = level % 3;
            const codec_ptr codec = make_codec(params);
            for (const usize length : {usize{1}, usize{100}, data.size(), usize{5000}}) {
                const bytes payload = payload_of(codec.get(), data.data(), length);
                const bytes image = compressed(slice(data, 0, length), params);
                EXPECT_EQ(payload, slice(image, 37, image.size())) << "as in a file";
                bytes block(length);
                ASSERT_EQ(qrx_codec_decompress(codec.get(), payload.data(), payload.size(),
                                               block.data(), length),
                          QRX_OK);
                EXPECT_EQ(block, slice(data, 0, length));
            }
        }
    }
}

TEST(api_codec, the_lent_buffer_gives_the_same_payload)
{
    const bytes data = sample_data(0, 300000);
    const codec_ptr codec = make_codec(params_of(2, 3));
    const bytes expected = payload_of(codec.get(), data.data(), data.size());
    for (u32 run = 0; run < 3; ++run) {
        void* block = nullptr;
        ASSERT_EQ(qrx_codec_buffer(codec.get(), data.size(), &block), QRX_OK);
        std::memcpy(block, data.data(), data.size());
        EXPECT_EQ(payload_of(codec.get(), block, data.size()), expected);
    }
    void* block = nullptr;
    EXPECT_EQ(qrx_codec_buffer(codec.get(), mib + 1, &block), QRX_BAD_ARGUMENT);
}

TEST(api_codec, damage_is_found)
{
    const bytes data = sample_data(0, 50000);
    const codec_ptr codec = make_codec(params_of(5, 3));
    bytes payload = payload_of(codec.get(), data.data(), data.size());
    payload[payload.size() / 2] ^= 1;
    bytes block(data.size());
    const qrx_status result = qrx_codec_decompress(codec.get(), payload.data(), payload.size(),
                                                   block.data(), block.size());
    EXPECT_TRUE(result == QRX_BLOCK_SHORT || result == QRX_INEXACT_END);
    EXPECT_NE(qrx_codec_decompress(codec.get(), payload.data(), 10, block.data(), block.size()),
              QRX_OK);
}

TEST(api_codec, bad_arguments_are_refused)
{
    const codec_ptr codec = make_codec(params_of(1, 0));
    bytes data(5000, 7);
    bytes payload(10000);
    usize size = 0;
    const auto compress = [&](const void* block, usize length, usize capacity) {
        return qrx_codec_compress(codec.get(), block, length, payload.data(), capacity, &size);
    };
    EXPECT_EQ(compress(data.data(), 5000, 5000 + QRX_CODEC_SLACK), QRX_OK);
    EXPECT_EQ(compress(data.data(), 5000, 5000 + QRX_CODEC_SLACK - 1), QRX_BUFFER_TOO_SMALL);
    EXPECT_EQ(compress(data.data(), 0, 10000), QRX_BAD_ARGUMENT);
    EXPECT_EQ(compress(data.data(), mib + 1, 4 * mib), QRX_BAD_ARGUMENT);
    EXPECT_EQ(compress(nullptr, 1, 10000), QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_codec_decompress(codec.get(), data.data(), 11, payload.data(), 10),
              QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_codec_decompress(codec.get(), data.data(), 1, payload.data(), 0),
              QRX_BAD_ARGUMENT);
    qrx_codec* none = nullptr;
    const qrx_params bad = params_of(1, 10);
    EXPECT_EQ(qrx_codec_new(&none, &bad, nullptr), QRX_BAD_ARGUMENT);
    recorded_options options;
    options.memory_limit = 100000;
    EXPECT_EQ(qrx_codec_new(&none, nullptr, &options), QRX_OVER_LIMIT);
    EXPECT_EQ(none, nullptr);
    qrx_codec_free(nullptr);
}

} // namespace
} // namespace quarnex::test
