// Opens files with damaged headers with QRX_SEARCH: the header is reconstructed from the records.
#include "api/search_fixture.h"

#include <cstdlib>

namespace quarnex::test {
namespace {

/// Opens an image, expects its header to be reconstructed, and returns the info.
qrx_info reconstructed(const bytes& image, const sample_file& file, qrx_status fault, usize excess)
{
    recorded_options options(0, QRX_SEARCH);
    const reader_ptr reader = open_image(image, &options);
    if (!reader) return {};
    const qrx_info info = info_of(reader.get());
    EXPECT_EQ(options.found(), std::vector{fault});
    EXPECT_EQ(options.events.at(0).offset, 0U);
    EXPECT_EQ(info.layout, fault);
    EXPECT_EQ(info.block_size, mib);
    EXPECT_GE(info.original_size, file.data.size());
    EXPECT_LE(info.original_size, file.data.size() + excess);
    EXPECT_EQ(slice(read_range(reader.get(), 0, file.data.size()), 0, file.data.size()), file.data);
    return info;
}

TEST(api_header_search, a_wrong_size_of_the_original_is_corrected)
{
    for (u32 method = 1; method <= 5; ++method) {
        for (const u32 flags : {method % 2 != 0 ? QRX_SEAL : 0U}) {
            const sample_file file(method, flags);
            for (const u32 bit : {20U, 22U, 23U, 31U, 32U, 47U, 63U}) {
                SCOPED_TRACE(testing::Message() << "method " << method << " bit " << bit);
                bytes image = file.image;
                image[4 + bit / 8] ^= static_cast<u8>(1U << bit % 8);
                reconstructed(image, file, QRX_CORRUPT, 0);
            }
        }
    }
}

TEST(api_header_search, wrong_codec_parameters_are_corrected)
{
    for (u32 method = 1; method <= 5; ++method) {
        for (const u32 context_bits : {0U, 5U}) {
            if (context_bits != 0 && method != 4) continue;
            const sample_file file(method, 0, context_bits);
            for (const usize field : {usize{12}, usize{13}, usize{16}, usize{18}}) {
                for (const u32 wrong : {0U, 1U, 3U, 4U, 9U, 77U}) {
                    bytes image = file.image;
                    const bool is_other_class = (image[13] > 7) != (wrong > 7);
                    const bool changes_decoding =
                        (field == 12 && image[field] != wrong) || (field == 13 && is_other_class) ||
                        (field == 16 && method == 4 && image[field] != wrong) ||
                        (field == 18 && image[field] != wrong);
                    if (!changes_decoding) continue;
                    SCOPED_TRACE(testing::Message()
                                 << "method " << method << " byte " << field << " is " << wrong);
                    image[field] = static_cast<u8>(wrong);
                    reconstructed(image, file, QRX_CORRUPT, 0);
                }
            }
        }
    }
}

TEST(api_header_search, a_header_of_zeros_or_noise_is_reconstructed)
{
    for (u32 method = 1; method <= 5; ++method) {
        for (const u32 context_bits : {0U, 5U}) {
            if (context_bits != 0 && method != 4) continue;
            const sample_file file(method, 0, context_bits);
            for (const u32 pattern : {0U, 1U, 2U, 3U}) {
                SCOPED_TRACE(testing::Message() << "method " << method << " pattern " << pattern);
                // Only methods 1 and 2 have an end token.
                reconstructed(overwritten(file.image, 0, header_bytes, pattern), file, QRX_NOT_QRX,
                              method <= 2 ? 0 : 300);
            }
        }
    }
}

TEST(api_header_search, a_lost_first_sector_loses_the_first_block)
{
    for (u32 method = 1; method <= 5; ++method) {
        for (const u32 flags : {method % 2 != 0 ? QRX_SEAL : 0U}) {
            const sample_file file(method, flags);
            for (const usize sector : {usize{512}, usize{4096}}) {
                for (const u32 pattern : {0U, 3U}) {
                    SCOPED_TRACE(testing::Message() << "method " << method << " sector " << sector
                                                    << " pattern " << pattern);
                    const bytes image = overwritten(file.image, 0, sector, pattern);
                    recorded_options options(0, QRX_SEARCH);
                    const reader_ptr reader = open_image(image, &options);
                    ASSERT_TRUE(reader);
                    const usize whole = whole_blocks * mib;
                    EXPECT_EQ(read_range(reader.get(), mib, whole - mib),
                              slice(file.data, mib, whole - mib));
                    const bytes rest = read_range(reader.get(), whole, mib);
                    EXPECT_EQ(slice(rest, 0, file.data.size() - whole),
                              slice(file.data, whole, mib));
                    EXPECT_LE(rest.size(), file.data.size() - whole + (method <= 2 ? 0 : 300));
                    EXPECT_EQ(info_of(reader.get()).is_sealed, flags);
                }
            }
        }
    }
}

TEST(api_header_search, the_header_of_a_single_block_is_reconstructed)
{
    const bytes data = sample_data(0, 300000);
    for (u32 method = 1; method <= 5; ++method) {
        const bytes good = compressed(data, params_of(method, 1));
        for (const u32 pattern : {0U, 3U}) {
            SCOPED_TRACE(testing::Message() << "method " << method << " pattern " << pattern);
            const bytes image = overwritten(good, 0, header_bytes, pattern);
            recorded_options options(0, QRX_SEARCH);
            const reader_ptr reader = open_image(image, &options);
            ASSERT_TRUE(reader);
            const bytes restored = read_range(reader.get(), 0, 2 * data.size());
            EXPECT_EQ(slice(restored, 0, data.size()), data);
            EXPECT_LE(restored.size(), data.size() + (method <= 2 ? 0 : 300));
        }
    }
}

TEST(api_header_search, damaged_payloads_do_not_discredit_a_good_header)
{
    for (u32 method = 1; method <= 5; ++method) {
        SCOPED_TRACE(method);
        bytes image = compressed(sample_data(0, 300000), params_of(method, 1));
        for (usize at = 200; at < image.size(); at += 997) image[at] ^= 0x55;
        recorded_options options(0, QRX_SEARCH);
        const reader_ptr reader = open_image(image, &options);
        EXPECT_EQ(info_of(reader.get()).layout, QRX_OK);
        EXPECT_EQ(info_of(reader.get()).original_size, 300000U);
        EXPECT_TRUE(options.events.empty());
    }
}

/// An allocator that fails at one call.
struct failing_memory {
    explicit failing_memory(u32 call) : failing(call) {}

    qrx_allocator get()
    {
        return {[](void* self, size_t size) -> void* {
                    auto& state = *static_cast<failing_memory*>(self);
                    return ++state.calls == state.failing ? nullptr : malloc(size);
                },
                [](void*, void* block, size_t) { free(block); }, this};
    }

    u32 calls = 0;
    const u32 failing;
};

TEST(api_header_search, a_lack_of_memory_does_not_discredit_a_good_header)
{
    const sample_file file(4);
    u32 failures = 0;
    for (u32 failing = 1; failing < 12; ++failing) {
        failing_memory memory(failing);
        recorded_options options(0, QRX_SEARCH);
        options.allocator = memory.get();
        qrx_reader* opened = nullptr;
        const qrx_status result =
            qrx_reader_open_memory(&opened, file.image.data(), file.image.size(), &options);
        const reader_ptr reader(opened);
        failures += result != QRX_OK ? 1 : 0;
        EXPECT_TRUE(result == QRX_OK || result == QRX_NO_MEMORY) << failing;
        EXPECT_TRUE(opened == nullptr || info_of(opened).layout == QRX_OK) << failing;
    }
    EXPECT_GE(failures, 2U) << "the handle and the index";
}

/// Opens an image with a damaged header, and requires the same result as without limits, or the
/// failure `lack`, which is reported.
qrx_status open_or_lack(const bytes& image, const qrx_info& expected, recorded_options& options,
                        qrx_status lack)
{
    qrx_reader* opened = nullptr;
    const qrx_status result = qrx_reader_open_memory(&opened, image.data(), image.size(), &options);
    const reader_ptr reader(opened);
    EXPECT_TRUE(result == QRX_OK || result == lack) << qrx_status_text(result);
    if (result != QRX_OK) return result;
    EXPECT_EQ(info_of(opened).original_size, expected.original_size);
    EXPECT_EQ(info_of(opened).block_size, expected.block_size);
    return result;
}

TEST(api_header_search, a_memory_limit_does_not_change_what_is_found)
{
    for (const u32 method : {1U, 3U}) {
        const sample_file file(method);
        for (const usize damaged : {header_bytes, header_bytes + record_head_bytes}) {
            const bytes image = overwritten(file.image, 0, damaged, 0);
            recorded_options unlimited(0, QRX_SEARCH);
            const qrx_info expected = info_of(open_image(image, &unlimited).get());
            u32 opened = 0;
            u32 refused = 0;
            for (u64 limit = 2048; limit < u64{512} << 20; limit += limit / 5) {
                SCOPED_TRACE(testing::Message() << "method " << method << " limit " << limit);
                recorded_options options(0, QRX_SEARCH);
                options.memory_limit = limit;
                const qrx_status result = open_or_lack(image, expected, options, QRX_OVER_LIMIT);
                ++(result == QRX_OK ? opened : refused);
                if (result == QRX_OK) continue;
                ASSERT_FALSE(options.events.empty());
                const qrx_event& last = options.events.back();
                EXPECT_EQ(last.what, QRX_OVER_LIMIT);
                EXPECT_EQ(last.got, limit);
                EXPECT_GT(last.wanted, limit);
            }
            EXPECT_GE(opened, 4U);
            EXPECT_GE(refused, 10U);
        }
    }
}

TEST(api_header_search, a_wrong_block_size_does_not_need_memory)
{
    const sample_file file(2);
    bytes image = overwritten(file.image, 0, 4, 0);
    image[18] = 0xFF;
    image[19] = 0x07; // 2047 MiB
    for (const u64 limit : {u64{256} << 20, UINT64_MAX}) {
        recorded_options options(0, QRX_SEARCH);
        options.memory_limit = limit;
        const reader_ptr reader = open_image(image, &options);
        EXPECT_EQ(info_of(reader.get()).block_size, mib) << limit;
    }
}

TEST(api_header_search, a_failed_allocation_does_not_change_what_is_found)
{
    const sample_file file(4);
    const bytes image = overwritten(file.image, 0, header_bytes + record_head_bytes, 0);
    recorded_options good(0, QRX_SEARCH);
    const qrx_info expected = info_of(open_image(image, &good).get());
    qrx_status result = QRX_NO_MEMORY;
    u32 failing = 1;
    for (; result != QRX_OK; ++failing) {
        failing_memory memory(failing);
        recorded_options options(0, QRX_SEARCH);
        options.allocator = memory.get();
        result = open_or_lack(image, expected, options, QRX_NO_MEMORY);
        if (result == QRX_OK || failing == 1) continue; // 1: the handle
        ASSERT_FALSE(options.events.empty());
        EXPECT_EQ(options.events.back().what, QRX_NO_MEMORY) << failing;
    }
    EXPECT_GT(failing, 10U);
}

TEST(api_header_search, other_files_still_do_not_open)
{
    for (const bytes& image : {bytes(), bytes(31, 7), bytes(32, 0), bytes(100000, 0),
                               sample_data(1), find_shape("random").make(3 * mib, 1)}) {
        recorded_options options(0, QRX_SEARCH);
        qrx_reader* reader = nullptr;
        EXPECT_EQ(qrx_reader_open_memory(&reader, image.data(), image.size(), &options),
                  QRX_NOT_QRX);
        EXPECT_EQ(reader, nullptr);
        EXPECT_EQ(options.found(), std::vector{QRX_NOT_QRX});
    }
}

} // namespace
} // namespace quarnex::test
