#include "api/api_fixture.h"
#include "support/temp_dir.h"

#include <cerrno>

namespace quarnex::test {
namespace {

/// Returns an image of `blocks` blocks with records in the order of `order`.
bytes reordered(const bytes& image, const std::vector<u32>& order)
{
    const reader_ptr reader = open_image(image);
    bytes shuffled = slice(image, 0, 32);
    for (usize record = 0; record < order.size(); ++record) {
        const block_in_image place = block_info_of(reader.get(), order[record]);
        bytes bytes_of_record = slice(image, place.offset - 5, 5 + place.payload_size);
        bytes_of_record[4] =
            displacement_of(static_cast<i32>(order[record]) - static_cast<i32>(record));
        shuffled = joined({shuffled, bytes_of_record});
    }
    return shuffled;
}

/// Returns an image without the record of a block; other records keep their blocks.
bytes without_block(const bytes& image, u32 missing, u32 blocks)
{
    std::vector<u32> order;
    for (u32 block = 0; block < blocks; ++block) {
        if (block != missing) order.push_back(block);
    }
    return reordered(image, order);
}

TEST(api_reader, any_range_can_be_read)
{
    const bytes data = sample_data(5);
    for (const u32 threads : {0U, 1U, 2U, 3U}) {
        const bytes image = compressed(data, params_of(threads + 1, 1), QRX_SEAL);
        recorded_options options(threads);
        const reader_ptr reader = open_image(image, &options);
        random_source random(threads);
        for (u32 i = 0; i < 60; ++i) {
            const usize offset = random.below(static_cast<u32>(data.size() + 10));
            const usize size = random.below(i % 8 == 0 ? 4 * mib : 100000);
            ASSERT_EQ(read_range(reader.get(), offset, size), slice(data, offset, size));
        }
        EXPECT_TRUE(options.events.empty());
    }
}

TEST(api_reader, sequential_reads_give_the_original_and_check_the_seal)
{
    const bytes data = sample_data(3);
    bytes image = compressed(data, params_of(2, 1), QRX_SEAL);
    for (const bool is_wrong : {false, true}) {
        if (is_wrong) image.back() ^= 1;
        for (const u32 threads : {0U, 2U}) {
            recorded_options options(threads);
            const reader_ptr reader = open_image(image, &options);
            bytes all;
            while (all.size() < data.size()) {
                const bool is_last = all.size() + 700000 >= data.size();
                // The last block is decoded once, by the first call that needs it.
                const bool ends = is_wrong && all.size() < 3 * mib && all.size() + 700000 > 3 * mib;
                const bytes piece = read_range(reader.get(), all.size(), 700000,
                                               ends ? QRX_CHECKSUM_MISMATCH : QRX_OK);
                EXPECT_TRUE(!is_last || all.size() + piece.size() == data.size());
                all = joined({all, piece});
            }
            EXPECT_EQ(all, data);
            EXPECT_EQ(options.events.size(), is_wrong ? 1U : 0U);
        }
    }
}

TEST(api_reader, the_seal_is_checked_whatever_the_order_of_reads)
{
    const bytes data = sample_data(2);
    bytes image = compressed(data, params_of(2, 1), QRX_SEAL);
    image.back() ^= 1;
    const reader_ptr reader = open_image(image);
    EXPECT_EQ(read_range(reader.get(), 2 * mib, 5).size(), 5U);
    EXPECT_EQ(read_range(reader.get(), 0, 5).size(), 5U);
    EXPECT_EQ(read_range(reader.get(), 10, 5).size(), 5U);
    EXPECT_EQ(read_range(reader.get(), mib, 5, QRX_CHECKSUM_MISMATCH), slice(data, mib, 5));
}

TEST(api_reader, reads_after_a_test_check_the_seal_again)
{
    const bytes data = sample_data(2);
    for (const u32 threads : {0U, 2U}) {
        bytes image = compressed(data, params_of(2, 1), QRX_SEAL);
        const recorded_options options(threads);
        const reader_ptr reader = open_image(image, &options);
        EXPECT_EQ(read_range(reader.get(), 0, mib).size(), mib);
        EXPECT_EQ(qrx_reader_test(reader.get()), QRX_OK);
        EXPECT_TRUE(read_range(reader.get(), 0, data.size()) == data);
        image.back() ^= 1;
        EXPECT_EQ(qrx_reader_test(reader.get()), QRX_CHECKSUM_MISMATCH);
        EXPECT_TRUE(read_range(reader.get(), 0, data.size(), QRX_CHECKSUM_MISMATCH) == data);
    }
}

TEST(api_reader, a_block_that_completes_a_wrong_seal_is_delivered)
{
    const bytes data = sample_data(0, 1000);
    bytes image = compressed(data, params_of(2, 1), QRX_SEAL);
    image.back() ^= 1;
    const reader_ptr reader = open_image(image);
    bytes block(data.size());
    usize size = 0;
    EXPECT_EQ(qrx_reader_block(reader.get(), 0, block.data(), block.size(), &size),
              QRX_CHECKSUM_MISMATCH);
    EXPECT_EQ(slice(block, 0, size), data);
}

TEST(api_reader, reads_beyond_the_end_are_short)
{
    const bytes data = sample_data(1);
    const bytes image = compressed(data, params_of(1, 0));
    const reader_ptr reader = open_image(image);
    EXPECT_EQ(read_range(reader.get(), data.size() - 3, 100), slice(data, data.size() - 3, 3));
    EXPECT_EQ(read_range(reader.get(), data.size(), 100).size(), 0U);
    EXPECT_EQ(read_range(reader.get(), UINT64_MAX, 100).size(), 0U);
    EXPECT_EQ(read_range(reader.get(), 5, 0).size(), 0U);
    usize got = 1;
    EXPECT_EQ(qrx_reader_read(reader.get(), 5, nullptr, 0, &got), QRX_OK);
    EXPECT_EQ(qrx_reader_read(reader.get(), 5, nullptr, 1, &got), QRX_BAD_ARGUMENT);
}

TEST(api_reader, records_in_any_order_are_found)
{
    const bytes data = sample_data(3);
    const bytes image = reordered(compressed(data, params_of(3, 1)), {2, 3, 0, 1});
    for (const u32 threads : {0U, 2U}) {
        recorded_options options(threads);
        const reader_ptr reader = open_image(image, &options);
        EXPECT_EQ(info_of(reader.get()).layout, QRX_OK);
        EXPECT_EQ(read_range(reader.get(), 0, data.size()), data);
        EXPECT_EQ(qrx_reader_test(reader.get()), QRX_OK);
    }
}

TEST(api_reader, information_comes_from_header_and_record_heads)
{
    const bytes data = joined({sample_data(1, 0), find_shape("random").make(1000, 1)});
    qrx_params params = params_of(4, 2);
    params.context_bits = 3;
    params.filter = QRX_FILTER_DELTA;
    ASSERT_EQ(qrx_params_settle(&params), QRX_OK);
    const bytes image = compressed(data, params, QRX_SEAL);
    const reader_ptr reader = open_image(image);
    const qrx_info info = info_of(reader.get());
    EXPECT_EQ(info.original_size, data.size());
    EXPECT_EQ(info.file_size, image.size());
    EXPECT_EQ(info.block_size, mib);
    EXPECT_EQ(info.block_count, 2U);
    EXPECT_EQ(info.blocks_found, 2U);
    EXPECT_EQ(info.stored_blocks, 1U);
    EXPECT_EQ(info.is_sealed, 1U);
    EXPECT_EQ(info.seal, qrx_crc32(0, data.data(), data.size()));
    EXPECT_EQ(info.layout, QRX_OK);
    auto found = sized<qrx_params>();
    ASSERT_EQ(qrx_reader_params(reader.get(), &found), QRX_OK);
    EXPECT_EQ(found.method, 4U);
    EXPECT_EQ(found.level, 2U);
    EXPECT_EQ(found.context_bits, 3U);
    EXPECT_EQ(found.filter, QRX_FILTER_DELTA);
    EXPECT_EQ(found.hash_bits, params.hash_bits);
    EXPECT_EQ(found.chain_bits, params.chain_bits);
    EXPECT_EQ(found.block_mib, 1U);
    const block_in_image stored = block_info_of(reader.get(), 1);
    EXPECT_EQ(stored.original_offset, mib);
    EXPECT_EQ(stored.length, 1000U);
    EXPECT_EQ(stored.payload_size, 1000U);
    EXPECT_EQ(stored.offset, image.size() - 4 - 1000);
    EXPECT_EQ(stored.is_stored, 1U);
    EXPECT_EQ(stored.is_found, 1U);
    auto none = sized<qrx_block_info>();
    EXPECT_EQ(qrx_reader_block_info(reader.get(), 2, &none), QRX_BAD_ARGUMENT);
}

TEST(api_reader, fields_of_a_newer_header_become_zero)
{
    const bytes image = compressed(sample_data(0), params_of(1, 0));
    const reader_ptr reader = open_image(image);
    struct {
        qrx_info known;
        u64 added = 7;
    } newer{};
    newer.known.struct_size = sizeof newer;
    EXPECT_EQ(qrx_reader_info(reader.get(), &newer.known), QRX_OK);
    EXPECT_EQ(newer.known.struct_size, sizeof newer);
    EXPECT_EQ(newer.added, 0U);
}

TEST(api_reader, an_empty_file_has_no_blocks)
{
    const bytes image = compressed({}, params_of(3, 3), QRX_SEAL);
    const reader_ptr reader = open_image(image);
    const qrx_info info = info_of(reader.get());
    EXPECT_EQ(info.original_size, 0U);
    EXPECT_EQ(info.block_count, 0U);
    EXPECT_EQ(info.blocks_found, 0U);
    EXPECT_EQ(info.stored_blocks, 0U);
    EXPECT_EQ(info.is_sealed, 1U);
    EXPECT_EQ(qrx_reader_test(reader.get()), QRX_OK);
    EXPECT_EQ(read_range(reader.get(), 0, 10).size(), 0U);
    usize size = 0;
    u8 byte = 0;
    EXPECT_EQ(qrx_reader_block(reader.get(), 0, &byte, 1, &size), QRX_BAD_ARGUMENT);
}

TEST(api_reader, whole_blocks_and_payloads)
{
    const bytes data = sample_data(2);
    const bytes image = compressed(data, params_of(5, 1));
    recorded_options options(2);
    const reader_ptr reader = open_image(image, &options);
    bytes block(mib);
    usize size = 0;
    for (const u32 index : {1U, 0U, 2U}) {
        const block_in_image place = block_info_of(reader.get(), index);
        EXPECT_EQ(qrx_reader_block(reader.get(), index, block.data(), place.length - 1, &size),
                  QRX_BUFFER_TOO_SMALL);
        ASSERT_EQ(qrx_reader_block(reader.get(), index, block.data(), place.length, &size), QRX_OK);
        EXPECT_EQ(slice(block, 0, size), slice(data, index * mib, mib));
        EXPECT_EQ(
            qrx_reader_payload(reader.get(), index, block.data(), place.payload_size - 1, &size),
            QRX_BUFFER_TOO_SMALL);
        ASSERT_EQ(qrx_reader_payload(reader.get(), index, block.data(), mib, &size), QRX_OK);
        EXPECT_EQ(slice(block, 0, size), slice(image, place.offset, place.payload_size));
    }
    EXPECT_EQ(qrx_reader_block(reader.get(), 3, block.data(), mib, &size), QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_reader_payload(reader.get(), 3, block.data(), mib, &size), QRX_BAD_ARGUMENT);
}

TEST(api_reader, files_open_by_name)
{
    const temp_dir dir;
    const bytes data = sample_data(1);
    write_file(dir / "a.qrx", compressed(data, params_of(1, 0)));
    recorded_options options(1);
    qrx_reader* opened = nullptr;
    ASSERT_EQ(qrx_reader_open(&opened, (dir / "a.qrx").c_str(), &options), QRX_OK);
    const reader_ptr reader(opened);
    EXPECT_EQ(read_range(opened, 0, data.size()), data);
    qrx_reader* missing = opened;
    EXPECT_EQ(qrx_reader_open(&missing, (dir / "b.qrx").c_str(), &options), QRX_OPEN_FAILED);
    EXPECT_EQ(missing, nullptr);
    ASSERT_EQ(options.events.size(), 1U);
    EXPECT_EQ(options.events[0].system_error, ENOENT);
    EXPECT_EQ(options.events[0].block, QRX_NO_BLOCK);
    EXPECT_EQ(qrx_reader_open(&missing, nullptr, &options), QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_reader_open(nullptr, "a", &options), QRX_BAD_ARGUMENT);
}

TEST(api_reader, other_files_do_not_open)
{
    const bytes good = compressed(sample_data(0), params_of(1, 0));
    bytes bad_level = good;
    bad_level[13] = 10;
    bytes no_block_size = good;
    no_block_size[18] = no_block_size[19] = 0;
    const std::vector<std::pair<bytes, qrx_status>> images{
        {{}, QRX_NOT_QRX},
        {bytes_of("abcd"), QRX_NOT_QRX},
        {sample_data(0), QRX_NOT_QRX},
        {slice(good, 0, 31), QRX_TRUNCATED},
        {bad_level, QRX_CORRUPT},
        {no_block_size, QRX_CORRUPT},
    };
    for (const auto& [image, expected] : images) {
        recorded_options options;
        qrx_reader* reader = nullptr;
        EXPECT_EQ(qrx_reader_open_memory(&reader, image.data(), image.size(), &options), expected);
        EXPECT_EQ(reader, nullptr);
        EXPECT_EQ(options.found(), std::vector{expected});
    }
}

TEST(api_reader, a_truncated_file_gives_the_blocks_left)
{
    const bytes data = sample_data(2);
    const bytes image = compressed(data, params_of(2, 0), QRX_SEAL);
    const reader_ptr whole = open_image(image);
    for (const usize size :
         {usize{32}, usize{36}, usize{37}, usize{1000}, block_info_of(whole.get(), 1).offset - 5,
          block_info_of(whole.get(), 1).offset, image.size() - 5}) {
        const bytes cut = slice(image, 0, size);
        recorded_options options(size % 2);
        const reader_ptr reader = open_image(cut, &options);
        const qrx_info info = info_of(reader.get());
        EXPECT_EQ(info.layout, QRX_TRUNCATED);
        EXPECT_EQ(info.is_sealed, 0U);
        EXPECT_TRUE(options.events.empty()) << "opening reports nothing";
        const usize valid = static_cast<usize>(info.blocks_found) * mib;
        EXPECT_EQ(read_range(reader.get(), 0, data.size(), QRX_TRUNCATED), slice(data, 0, valid));
        ASSERT_EQ(options.events.size(), 1U);
        EXPECT_EQ(options.events[0].block, info.blocks_found);
        const u64 payload = block_info_of(whole.get(), info.blocks_found).offset;
        EXPECT_EQ(options.events[0].offset, payload - 5) << "where the next record starts";
        EXPECT_EQ(qrx_reader_test(reader.get()), QRX_TRUNCATED);
        EXPECT_EQ(options.events.back().what, QRX_BLOCK_MISSING);
        EXPECT_EQ(options.events.back().block, info.blocks_found);
        EXPECT_EQ(options.events.back().wanted, 3 - info.blocks_found);
    }
    const bytes unsealed = slice(image, 0, image.size() - 1);
    const reader_ptr reader = open_image(unsealed);
    EXPECT_EQ(info_of(reader.get()).layout, QRX_TRAILING_BYTES) << "three bytes of the seal";
}

TEST(api_reader, sealed_files_are_tested_where_readers_ignore_differences)
{
    const bytes data = sample_data(1);
    const bytes sealed = compressed(data, params_of(3, 3), QRX_SEAL);
    const bytes unsealed = slice(sealed, 0, sealed.size() - 4);
    const std::vector<usize> ignored{0, 14, 15, 17, 21, 22, 23, 25, 26, 27, 28, 29, 30, 31};
    for (const usize offset : ignored) {
        bytes changed = sealed;
        changed[offset] ^= 0x40;
        const reader_ptr reader = open_image(changed);
        EXPECT_EQ(qrx_reader_test(reader.get()), QRX_CORRUPT) << offset;
        EXPECT_TRUE(read_range(reader.get(), 0, data.size()) == data) << offset;
        bytes same = unsealed;
        same[offset] ^= 0x40;
        EXPECT_EQ(qrx_reader_test(open_image(same).get()), QRX_OK) << offset;
    }
    bytes minus_zero = sealed;
    minus_zero[36] ^= 1; // the displacement byte of the first record
    EXPECT_EQ(qrx_reader_test(open_image(minus_zero).get()), QRX_CORRUPT);
}

TEST(api_reader, missing_and_repeated_blocks_are_found)
{
    const bytes data = sample_data(3);
    const bytes image = compressed(data, params_of(1, 0));
    const bytes missing = without_block(image, 1, 4);
    recorded_options options;
    const reader_ptr reader = open_image(missing, &options);
    EXPECT_EQ(info_of(reader.get()).layout, QRX_TRUNCATED) << "fewer records than blocks";
    EXPECT_EQ(block_info_of(reader.get(), 1).is_found, 0U);
    EXPECT_EQ(read_range(reader.get(), 2 * mib, mib), slice(data, 2 * mib, mib));
    EXPECT_EQ(read_range(reader.get(), mib / 2, mib, QRX_TRUNCATED), slice(data, mib / 2, mib / 2));

    const bytes repeated = reordered(image, {0, 2, 2, 3});
    recorded_options other;
    const reader_ptr second = open_image(repeated, &other);
    EXPECT_EQ(info_of(second.get()).layout, QRX_BLOCK_REPEATED);
    EXPECT_EQ(read_range(second.get(), mib, 10, QRX_BLOCK_MISSING).size(), 0U);
    other.events.clear();
    EXPECT_EQ(qrx_reader_test(second.get()), QRX_BLOCK_REPEATED);
    EXPECT_EQ(other.found(), (std::vector{QRX_BLOCK_REPEATED, QRX_BLOCK_MISSING}));
    EXPECT_EQ(other.events[0].block, 2U);
    EXPECT_EQ(other.events[1].block, 1U);
}

TEST(api_reader, a_corrupt_record_head_ends_what_is_found)
{
    const bytes data = sample_data(3);
    bytes image = compressed(data, params_of(1, 0));
    usize head = 0;
    {
        const reader_ptr reader = open_image(image);
        head = block_info_of(reader.get(), 2).offset - 5;
    }
    image[head + 3] = 0x80; // 2 GiB
    recorded_options options(1);
    const reader_ptr reader = open_image(image, &options);
    EXPECT_EQ(info_of(reader.get()).layout, QRX_CORRUPT);
    EXPECT_EQ(read_range(reader.get(), 0, data.size(), QRX_CORRUPT), slice(data, 0, 2 * mib));
    options.events.clear();
    EXPECT_EQ(qrx_reader_test(reader.get()), QRX_CORRUPT);
    EXPECT_EQ(options.found(), (std::vector{QRX_CORRUPT, QRX_BLOCK_MISSING}));
    EXPECT_EQ(options.events[0].offset, head);
    EXPECT_EQ(options.events[1].block, 2U);
    EXPECT_EQ(options.events[1].wanted, 2U);
}

TEST(api_reader, a_test_reports_every_damaged_block)
{
    const bytes data = sample_data(5);
    bytes image = compressed(data, params_of(5, 1), QRX_SEAL);
    {
        const reader_ptr reader = open_image(image);
        for (const u64 block : {1U, 5U}) {
            const block_in_image place = block_info_of(reader.get(), block);
            image[place.offset + 100] ^= 0xFF;
        }
    }
    for (const u32 threads : {0U, 3U}) {
        recorded_options options(threads);
        const reader_ptr reader = open_image(image, &options);
        for (u32 run = 0; run < 2; ++run) {
            options.events.clear();
            options.progress_calls = 0;
            const qrx_status result = qrx_reader_test(reader.get());
            ASSERT_EQ(options.events.size(), 2U);
            EXPECT_EQ(options.events[0].what, result);
            EXPECT_EQ(options.events[0].block, 1U);
            EXPECT_EQ(options.events[1].block, 5U);
            EXPECT_EQ(options.progress_calls, 6U);
            EXPECT_EQ(options.done, data.size());
        }
        EXPECT_EQ(read_range(reader.get(), 2 * mib, mib), slice(data, 2 * mib, mib));
    }
}

TEST(api_reader, damage_is_reported_again_by_reads_after_a_test)
{
    const bytes data = sample_data(1);
    bytes image = compressed(data, params_of(5, 1));
    image[block_info_of(open_image(image).get(), 1).offset + 100] ^= 0xFF;
    for (const u32 threads : {0U, 2U}) {
        for (const u32 flags : {0U, QRX_KEEP_DAMAGED}) {
            recorded_options options(threads, flags);
            const reader_ptr reader = open_image(image, &options);
            const qrx_status damage = qrx_reader_test(reader.get());
            EXPECT_NE(damage, QRX_OK);
            options.events.clear();
            const bool is_kept = flags == QRX_KEEP_DAMAGED;
            read_range(reader.get(), mib, 10, is_kept ? QRX_OK : damage);
            EXPECT_EQ(options.found(), std::vector{damage});
        }
    }
}

TEST(api_reader, damaged_blocks_are_kept_on_request)
{
    const bytes data = sample_data(3);
    bytes image = compressed(data, params_of(1, 0));
    image.resize(image.size() - 10); // cuts the last block
    recorded_options options(2, QRX_KEEP_DAMAGED);
    const reader_ptr reader = open_image(image, &options);
    const bytes kept = read_range(reader.get(), 5, data.size());
    ASSERT_EQ(kept.size(), data.size() - 5);
    EXPECT_EQ(slice(kept, 0, 3 * mib - 5), slice(data, 5, 3 * mib - 5));
    EXPECT_EQ(slice(kept, 3 * mib - 5, mib), bytes(data.size() - 3 * mib));
    EXPECT_EQ(options.found(), std::vector{QRX_TRUNCATED});
    EXPECT_EQ(qrx_reader_test(reader.get()), QRX_TRUNCATED) << "a test tells";
}

/// A source that fails or ends early on request.
struct fragile_source {
    const bytes& image;
    u64 failing_offset = UINT64_MAX; // reads of it fail
    u64 end = UINT64_MAX;            // reads end there

    qrx_source source()
    {
        return {sizeof(qrx_source),
                [](void* self, u64 offset, void* dest, usize size, usize* got) {
                    return static_cast<fragile_source*>(self)->read(offset, dest, size, got);
                },
                image.size(), this};
    }

    int read(u64 offset, void* dest, usize size, usize* got) const
    {
        EXPECT_LE(offset + size, image.size()) << "never asks beyond the size";
        *got = 0;
        if (offset <= failing_offset && failing_offset < offset + size) return 1234;
        const u64 stop = std::min<u64>(offset + size, std::max(end, offset));
        *got = static_cast<usize>(stop - offset);
        std::copy_n(image.begin() + static_cast<std::ptrdiff_t>(offset), *got,
                    static_cast<u8*>(dest));
        return 0;
    }
};

TEST(api_reader, a_source_of_callbacks_can_fail)
{
    const bytes data = sample_data(2);
    const bytes image = compressed(data, params_of(1, 0));
    for (const u32 threads : {0U, 2U}) {
        fragile_source input{image};
        const qrx_source source = input.source();
        recorded_options options(threads);
        qrx_reader* opened = nullptr;
        ASSERT_EQ(qrx_reader_open_source(&opened, &source, &options), QRX_OK);
        const reader_ptr reader(opened);
        const block_in_image place = block_info_of(opened, 1);
        input.failing_offset = place.offset + 1;
        EXPECT_EQ(read_range(opened, 0, data.size(), QRX_READ_FAILED), slice(data, 0, mib));
        ASSERT_EQ(options.events.size(), 1U);
        EXPECT_EQ(options.events[0].system_error, 1234);
        EXPECT_EQ(options.events[0].block, 1U);
        EXPECT_EQ(read_range(opened, 2 * mib, 10), slice(data, 2 * mib, 10));
        EXPECT_EQ(qrx_reader_test(opened), QRX_READ_FAILED);
        input.failing_offset = UINT64_MAX;
        input.end = place.offset + 10; // the file has become shorter
        EXPECT_EQ(read_range(opened, mib, 10, QRX_TRUNCATED).size(), 0U);
        EXPECT_EQ(options.events.back().wanted, place.payload_size);
        EXPECT_EQ(options.events.back().got, 10U);
        bytes block(mib);
        usize length = 1234;
        EXPECT_EQ(qrx_reader_block(opened, 1, block.data(), block.size(), &length), QRX_TRUNCATED);
        EXPECT_EQ(length, 0U) << "no byte is valid";
        input.end = UINT64_MAX;
        EXPECT_EQ(read_range(opened, 0, data.size()), data) << "a failed read can be repeated";
        EXPECT_EQ(qrx_reader_test(opened), QRX_OK);
    }
}

TEST(api_reader, a_source_that_fails_at_once_does_not_open)
{
    const bytes image = compressed(sample_data(0), params_of(1, 0));
    for (const u64 offset : {u64{0}, u64{32}}) {
        fragile_source input{image, offset};
        const qrx_source source = input.source();
        recorded_options options;
        qrx_reader* reader = nullptr;
        const qrx_status opened = qrx_reader_open_source(&reader, &source, &options);
        EXPECT_EQ(opened, QRX_READ_FAILED);
        EXPECT_EQ(reader, nullptr);
        EXPECT_EQ(options.found(), std::vector{QRX_READ_FAILED});
    }
    qrx_source no_source{};
    qrx_reader* reader = nullptr;
    EXPECT_EQ(qrx_reader_open_source(&reader, &no_source, nullptr), QRX_BAD_ARGUMENT);
    no_source.struct_size = sizeof no_source;
    EXPECT_EQ(qrx_reader_open_source(&reader, &no_source, nullptr), QRX_BAD_ARGUMENT);
}

TEST(api_reader, a_cancelled_read_can_be_repeated)
{
    const bytes data = sample_data(3);
    const bytes image = compressed(data, params_of(1, 0));
    for (const u32 threads : {0U, 2U}) {
        recorded_options options(threads);
        const reader_ptr reader = open_image(image, &options);
        options.cancel_at = 2;
        EXPECT_EQ(read_range(reader.get(), 0, data.size(), QRX_CANCELLED), slice(data, 0, 2 * mib));
        EXPECT_EQ(read_range(reader.get(), 0, data.size()), data);
        options.progress_calls = 0;
        EXPECT_EQ(qrx_reader_test(reader.get()), QRX_CANCELLED);
        EXPECT_TRUE(options.events.empty());
    }
}

TEST(api_reader, a_header_alone_allocates_little)
{
    bytes image = slice(compressed(sample_data(0), params_of(1, 0)), 0, 32);
    for (usize i = 4; i < 10; ++i) image[i] = 0x7F; // 127 TiB
    recorded_options options;
    options.memory_limit = 4 * mib;
    const reader_ptr reader = open_image(image, &options);
    EXPECT_EQ(info_of(reader.get()).layout, QRX_TRUNCATED);
    EXPECT_EQ(qrx_reader_test(reader.get()), QRX_TRUNCATED);
    EXPECT_EQ(options.events.size(), 2U);
    image[11] = 0x7F; // more than 2^32 blocks
    qrx_reader* none = nullptr;
    EXPECT_EQ(qrx_reader_open_memory(&none, image.data(), image.size(), nullptr), QRX_CORRUPT);
}

} // namespace
} // namespace quarnex::test
