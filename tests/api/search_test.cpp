// Opens files with damaged records with QRX_SEARCH: only the blocks that the damage touches are
// lost.
#include "api/search_fixture.h"

#include <chrono>

namespace quarnex::test {
namespace {

TEST(api_search, a_lost_head_loses_no_block)
{
    for (u32 method = 1; method <= 5; ++method) {
        for (const u32 flags : {0U, QRX_SEAL}) {
            const sample_file file(method, flags);
            for (u32 block = 0; block < file.blocks(); ++block) {
                for (const u32 pattern : {0U, 3U}) {
                    SCOPED_TRACE(testing::Message()
                                 << "method " << method << " flags " << flags << " block " << block
                                 << " pattern " << pattern);
                    const bytes image =
                        overwritten(file.image, file.heads[block], record_head_bytes, pattern);
                    recorded_options options(0, QRX_SEARCH);
                    const reader_ptr reader = open_image(image, &options);
                    EXPECT_EQ(found_blocks(reader.get()), file.all());
                    EXPECT_EQ(info_of(reader.get()).layout, QRX_CORRUPT);
                    const block_list intact = intact_blocks(reader.get(), file.data);
                    if (intact == file.all()) continue;
                    // Four bytes at the end can be a seal or belong to the last block.
                    EXPECT_EQ(intact, file.without({whole_blocks}));
                    EXPECT_EQ(block, whole_blocks);
                }
            }
        }
    }
}

TEST(api_search, the_damaged_head_is_reported_with_its_block)
{
    const sample_file file;
    const bytes image = overwritten(file.image, file.heads[2], record_head_bytes, 1);
    recorded_options options(1, QRX_SEARCH);
    const reader_ptr reader = open_image(image, &options);
    for (u32 run = 0; run < 2; ++run) {
        options.events.clear();
        EXPECT_EQ(qrx_reader_test(reader.get()), QRX_CORRUPT);
        ASSERT_EQ(options.found(), std::vector{QRX_CORRUPT});
        EXPECT_EQ(options.events[0].offset, file.heads[2]);
        EXPECT_EQ(options.events[0].block, 2U);
    }
}

TEST(api_search, without_the_flag_no_record_after_a_damaged_head_is_found)
{
    const sample_file file;
    const bytes image = overwritten(file.image, file.heads[2], record_head_bytes, 1);
    const reader_ptr reader = open_image(image);
    EXPECT_EQ(intact_blocks(reader.get(), file.data), (block_list{0, 1}));
}

TEST(api_search, a_good_file_is_unchanged)
{
    const sample_file file(4, QRX_SEAL);
    recorded_options options(0, QRX_SEARCH);
    const reader_ptr reader = open_image(file.image, &options);
    EXPECT_EQ(qrx_reader_test(reader.get()), QRX_OK);
    EXPECT_EQ(intact_blocks(reader.get(), file.data), file.all());
    EXPECT_TRUE(options.events.empty());
}

TEST(api_search, a_sector_loses_the_blocks_that_it_touches)
{
    for (u32 method = 1; method <= 5; ++method) {
        const sample_file file(method);
        for (const usize sector : {usize{512}, usize{4096}}) {
            for (u32 block = 0; block < file.blocks(); ++block) {
                for (const u32 pattern : {0U, 3U}) {
                    // Sectors are aligned in files.
                    const usize begin = std::max(file.heads[block] / sector * sector, header_bytes);
                    const usize end = file.heads[block] / sector * sector + sector;
                    SCOPED_TRACE(testing::Message()
                                 << "method " << method << " sector " << sector << " block "
                                 << block << " pattern " << pattern);
                    const bytes image = overwritten(file.image, begin, end - begin, pattern);
                    expect_intact(image, file.data, file.unchanged(image));
                }
            }
        }
    }
}

TEST(api_search, a_sector_inside_a_payload_loses_its_block)
{
    const sample_file file(5);
    for (u32 block = 0; block < file.blocks(); ++block) {
        const usize begin = file.heads[block] + record_head_bytes + 300;
        const usize end = std::min(begin + 512, file.ends[block]);
        recorded_options options(0, QRX_SEARCH);
        const bytes image = overwritten(file.image, begin, end - begin, 3);
        const reader_ptr reader = open_image(image, &options);
        EXPECT_EQ(intact_blocks(reader.get(), file.data), file.without({block}));
        EXPECT_EQ(info_of(reader.get()).layout, QRX_OK) << "no head is damaged";
    }
}

TEST(api_search, two_adjacent_heads_lose_two_blocks)
{
    for (const u32 flags : {0U, QRX_SEAL}) {
        const sample_file file(3, flags);
        for (u32 block = 0; block + 2 < file.blocks(); ++block) {
            SCOPED_TRACE(block);
            bytes image = overwritten(file.image, file.heads[block], record_head_bytes, 1);
            image = overwritten(image, file.heads[block + 1], record_head_bytes, 2);
            recorded_options options(0, QRX_SEARCH);
            const reader_ptr reader = open_image(image, &options);
            EXPECT_EQ(intact_blocks(reader.get(), file.data), file.without({block, block + 1}));
            EXPECT_EQ(qrx_reader_test(reader.get()), QRX_CORRUPT);
            ASSERT_EQ(options.events.size() >= 2, true);
            EXPECT_EQ(options.events.back().what, QRX_BLOCK_MISSING);
            EXPECT_EQ(options.events.back().block, block);
            EXPECT_EQ(options.events.back().wanted, 2U);
        }
    }
}

TEST(api_search, blocks_without_a_record_are_missing)
{
    const sample_file file;
    bytes image = overwritten(file.image, file.heads[1], record_head_bytes, 1);
    image = overwritten(image, file.heads[2], record_head_bytes, 1);
    recorded_options options(0, QRX_SEARCH);
    const reader_ptr reader = open_image(image, &options);
    read_range(reader.get(), mib, 10, QRX_BLOCK_MISSING);
    read_range(reader.get(), 2 * mib, 10, QRX_BLOCK_MISSING);
    EXPECT_EQ(read_range(reader.get(), 3 * mib, 10), slice(file.data, 3 * mib, 10));
}

TEST(api_search, a_wrong_size_loses_no_block)
{
    const sample_file file(1);
    for (u32 block = 0; block + 1 < file.blocks(); ++block) {
        const usize size = file.payload_size(block);
        for (const usize wrong :
             {size - 1, size + 1, size - 5, size + 5, size + 100, size / 2, size + 70000, usize{1},
              usize{mib}, usize{mib} + 1, usize{0}, size ^ 0x10000}) {
            SCOPED_TRACE(testing::Message() << block << ": " << wrong << " for " << size);
            bytes image = file.image;
            set_size(image, file.heads[block], wrong);
            expect_intact(image, file.data, file.all());
        }
    }
}

TEST(api_search, each_flipped_bit_of_a_head_loses_no_block_but_the_last)
{
    const sample_file file(2, QRX_SEAL);
    for (u32 block = 0; block < file.blocks(); ++block) {
        for (u32 bit = 0; bit < 8 * record_head_bytes; ++bit) {
            SCOPED_TRACE(testing::Message() << block << ", bit " << bit);
            bytes image = file.image;
            image[file.heads[block] + bit / 8] ^= static_cast<u8>(1U << bit % 8);
            recorded_options options(0, QRX_SEARCH);
            const reader_ptr reader = open_image(image, &options);
            const block_list intact = intact_blocks(reader.get(), file.data);
            if (block != whole_blocks)
                EXPECT_EQ(intact, file.all());
            else // a plausible size of the last record looks like a cut file or trailing bytes
                EXPECT_TRUE(intact == file.all() || intact == file.without({block}));
        }
    }
}

TEST(api_search, garbage_heads_after_a_wrong_size_are_dropped)
{
    const sample_file file(1);
    bytes image = file.image;
    // The size of record 1 leads to two false heads inside its payload.
    const usize first = file.heads[1] + record_head_bytes + 1000;
    set_size(image, file.heads[1], 1000);
    set_size(image, first, 2000);
    image[first + 4] = 0;
    const usize second = first + record_head_bytes + 2000;
    set_size(image, second, 3000);
    image[second + 4] = 0;
    const usize third = second + record_head_bytes + 3000;
    set_size(image, third, 0xFFFFFFFF);
    expect_intact(image, file.data, file.without({1}));
}

TEST(api_search, a_false_head_that_no_writer_writes_is_not_reported_apart)
{
    const sample_file file(1, QRX_SEAL);
    bytes image = file.image;
    const usize false_head = file.heads[1] + record_head_bytes + 1000;
    set_size(image, file.heads[1], 1000);
    set_size(image, false_head, 2000);
    image[false_head + 4] = 1; // minus zero
    set_size(image, false_head + record_head_bytes + 2000, 0xFFFFFFFF);
    recorded_options options(0, QRX_SEARCH);
    const reader_ptr reader = open_image(image, &options);
    EXPECT_EQ(qrx_reader_test(reader.get()), QRX_CORRUPT);
    const auto is_corrupt = [](qrx_status found) { return found == QRX_CORRUPT; };
    const std::vector<qrx_status> found = options.found();
    EXPECT_EQ(std::count_if(found.begin(), found.end(), is_corrupt), 1);
}

TEST(api_search, a_cut_file_keeps_its_whole_records)
{
    for (u32 method = 1; method <= 5; method += 2) {
        const sample_file file(method, QRX_SEAL);
        std::vector<usize> cuts{header_bytes, header_bytes + 3};
        for (u32 block = 0; block < file.blocks(); ++block) {
            for (const usize at : {file.heads[block] + 4, file.heads[block] + 5,
                                   (file.heads[block] + file.ends[block]) / 2, file.ends[block] - 1,
                                   file.ends[block]})
                cuts.push_back(at);
        }
        for (const usize cut : cuts) {
            SCOPED_TRACE(testing::Message() << "method " << method << " cut " << cut);
            const bytes image = slice(file.image, 0, cut);
            block_list whole;
            for (u32 block = 0; block < file.blocks(); ++block)
                if (file.ends[block] <= cut) whole.push_back(block);
            recorded_options options(0, QRX_SEARCH);
            const reader_ptr reader = open_image(image, &options);
            EXPECT_EQ(intact_blocks(reader.get(), file.data), whole);
            EXPECT_EQ(found_blocks(reader.get()), whole);
            const bool is_whole = cut == file.ends.back();
            EXPECT_EQ(info_of(reader.get()).layout, is_whole ? QRX_OK : QRX_TRUNCATED);
        }
    }
}

TEST(api_search, the_records_after_lost_or_added_bytes_are_numbered_from_the_end)
{
    const sample_file file(3);
    for (const usize count : {usize{1}, usize{3}, usize{100}, usize{5000}}) {
        for (u32 block = 0; block + 1 < file.blocks(); ++block) {
            const usize at = file.heads[block] + record_head_bytes + file.payload_size(block) / 3;
            SCOPED_TRACE(testing::Message() << count << " bytes in block " << block);
            expect_intact(joined({slice(file.image, 0, at),
                                  slice(file.image, at + count, file.image.size())}),
                          file.data, file.without({block}));
            expect_intact(joined({slice(file.image, 0, at), find_shape("random").make(count, 1),
                                  slice(file.image, at, file.image.size())}),
                          file.data, file.without({block}));
        }
    }
}

TEST(api_search, lost_bytes_across_records_lose_these_only)
{
    const sample_file file(3);
    const usize from = file.heads[1] + 1000;
    const usize to = file.heads[4] - 1000;
    expect_intact(joined({slice(file.image, 0, from), slice(file.image, to, file.image.size())}),
                  file.data, file.without({1, 2, 3}));
}

TEST(api_search, exchanged_pieces_lose_the_blocks_around_them)
{
    const sample_file file(3);
    // The end of record 1 and the start of record 2 are exchanged.
    const usize border = file.heads[2];
    const bytes image =
        joined({slice(file.image, 0, border - 2000), slice(file.image, border, 2000),
                slice(file.image, border - 2000, 2000),
                slice(file.image, border + 2000, file.image.size())});
    expect_intact(image, file.data, file.without({1, 2}));
}

/// Returns an image with the records in the given order.
bytes reordered(const sample_file& file, const block_list& order)
{
    bytes image = slice(file.image, 0, header_bytes);
    for (u32 record = 0; record < order.size(); ++record) {
        const u32 block = order[record];
        bytes added = slice(file.image, file.heads[block], file.ends[block] - file.heads[block]);
        added[4] = displacement_of(static_cast<i32>(block) - static_cast<i32>(record));
        image = joined({image, added});
    }
    return image;
}

TEST(api_search, records_in_any_order_are_numbered)
{
    const sample_file file(2);
    const block_list order{1, 0, 4, 2, 3, 6, 5};
    const bytes good = reordered(file, order);
    usize head = header_bytes;
    for (const u32 block : order) {
        SCOPED_TRACE(block);
        expect_intact(overwritten(good, head, record_head_bytes, 1), file.data, file.all());
        head += record_head_bytes + file.payload_size(block);
    }
}

TEST(api_search, a_false_record_gives_back_the_block_that_it_took)
{
    const sample_file file(2);
    bytes image = reordered(file, {1, 0, 2, 3, 4, 5, 6});
    // The head of record 1 claims block 1, which record 0 has, and leads into its own payload.
    const usize head = header_bytes + record_head_bytes + file.payload_size(1);
    set_size(image, head, 1000);
    image[head + 4] = displacement_of(0);
    expect_intact(image, file.data, file.all());

    recorded_options options(0, QRX_SEARCH);
    const reader_ptr reader = open_image(image, &options);
    EXPECT_EQ(qrx_reader_test(reader.get()), QRX_CORRUPT);
    EXPECT_EQ(options.found(), std::vector{QRX_CORRUPT});
    EXPECT_EQ(info_of(reader.get()).layout, QRX_CORRUPT);
    EXPECT_EQ(intact_blocks(reader.get(), file.data), file.all());
}

TEST(api_search, the_first_fault_is_the_one_reported_first)
{
    const sample_file file(2);
    // Record 0 claims block 3, whose own record is after the damage.
    bytes image = overwritten(file.image, file.heads[2], record_head_bytes, 1);
    image[file.heads[0] + 4] = displacement_of(3);
    recorded_options options(0, QRX_SEARCH);
    const reader_ptr reader = open_image(image, &options);
    EXPECT_EQ(info_of(reader.get()).layout, QRX_BLOCK_REPEATED);
    EXPECT_EQ(qrx_reader_test(reader.get()), QRX_BLOCK_REPEATED);
    EXPECT_EQ(options.found(),
              (std::vector{QRX_BLOCK_REPEATED, QRX_CORRUPT, QRX_BLOCK_MISSING, QRX_BLOCK_MISSING}));
    EXPECT_EQ(intact_blocks(reader.get(), file.data), file.without({0, 2}));
}

TEST(api_search, a_wrong_displacement_loses_no_block)
{
    const sample_file file(2);
    for (u32 block = 0; block < file.blocks(); ++block) {
        for (u32 wrong = 2; wrong < 256; wrong = wrong < 20 ? wrong + 1 : wrong + 47) {
            bytes image = file.image;
            image[file.heads[block] + 4] = static_cast<u8>(wrong);
            recorded_options options(0, QRX_SEARCH);
            const reader_ptr reader = open_image(image, &options);
            for (u32 each = 0; each < file.blocks(); ++each)
                ASSERT_EQ(block_info_of(reader.get(), each).offset,
                          file.heads[each] + record_head_bytes)
                    << block << ", displacement byte " << wrong;
            EXPECT_NE(info_of(reader.get()).layout, QRX_OK);
        }
    }
}

TEST(api_search, part_of_a_seal_does_not_hide_the_records_before_it)
{
    const sample_file file(2, QRX_SEAL);
    bytes image = overwritten(file.image, file.heads[3], record_head_bytes, 1);
    image.resize(image.size() - 2);
    expect_intact(image, file.data, file.all());
}

TEST(api_search, records_are_found_across_the_windows_of_the_search)
{
    // More than 1 MiB from the damage to the end; a head lies across each border in turn.
    const bytes data = find_shape("random").make(3 * mib, 5);
    const bytes good = compressed(data, params_of(1, 0));
    for (usize shift = 0; shift < 8; ++shift) {
        bytes image = overwritten(good, header_bytes, record_head_bytes, 1);
        image.insert(image.begin() + header_bytes + record_head_bytes + 100, shift, u8{7});
        expect_intact(image, data, shift == 0 ? block_list{0, 1, 2} : block_list{1, 2});
    }
}

/// Returns an image of `size` bytes whose header states an original of `blocks` blocks of 32 MiB.
bytes hostile_image(usize size, u64 blocks, const bytes& pattern)
{
    qrx_file file;
    file.header.original_size = blocks * 32 * mib;
    file.header.block_mb = 32;
    bytes image = build_qrx(file);
    image.reserve(size);
    image.insert(image.end(), {0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
    while (image.size() < size) image.push_back(pattern[image.size() % pattern.size()]);
    return image;
}

TEST(api_search, hostile_files_take_linear_time)
{
    const std::vector<bytes> patterns{{0},
                                      {1},
                                      {1, 0},
                                      {1, 0, 0, 0, 0, 0},
                                      {2, 0, 0, 0, 0},
                                      {0, 0, 1, 0, 0},
                                      {4, 0, 0, 0},
                                      {1, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0},
                                      {0x5A, 0x13, 0, 0, 0}};
    for (usize i = 0; i < patterns.size(); ++i) {
        for (const u64 blocks : {u64{3}, u64{1000}, u64{1000000}, u64{1} << 31}) {
            const bytes image = hostile_image(16 * mib, blocks, patterns[i]);
            recorded_options options(0, QRX_SEARCH);
            const auto start = std::chrono::steady_clock::now();
            const reader_ptr reader = open_image(image, &options);
            const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
            EXPECT_LT(seconds.count(), 20) << "pattern " << i << ", " << blocks << " blocks";
            EXPECT_NE(info_of(reader.get()).layout, QRX_OK);
        }
    }
}

TEST(api_search, records_at_positions_with_one_hash_take_linear_time)
{
    // All heads have records that end at the end of the file, and positions with neighbouring
    // entries in the hash table of the search.
    constexpr usize size = 8 * mib;
    bytes image = hostile_image(size, 100000, {0xFF});
    usize last = 0;
    u32 heads = 0;
    for (usize at = 100; at + record_head_bytes < size; ++at) {
        const u32 hash = static_cast<u32>(u64{at} * 0x9E3779B97F4A7C15 >> 32) % (1U << 18);
        if (hash > 20000 || at < last + record_head_bytes) continue;
        set_size(image, at, size - at - record_head_bytes);
        image[at + 4] = 1;
        last = at;
        ++heads;
    }
    EXPECT_GT(heads, 20000U);
    recorded_options options(0, QRX_SEARCH);
    const auto start = std::chrono::steady_clock::now();
    const reader_ptr reader = open_image(image, &options);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    EXPECT_LT(seconds.count(), 10);
}

TEST(api_search, the_memory_limit_holds)
{
    const sample_file file;
    const bytes image = overwritten(file.image, file.heads[2], record_head_bytes, 1);
    const qrx_params params = params_of(2, 1);
    auto options = sized<qrx_options>();
    options.flags = QRX_SEARCH;
    options.memory_limit = qrx_decompress_memory(&params, 0) + 16 * file.blocks();
    const reader_ptr reader = open_image(image, &options);
    EXPECT_EQ(intact_blocks(reader.get(), file.data), file.all());
}

TEST(api_search, whole_images_are_restored)
{
    const sample_file file;
    const bytes image = overwritten(file.image, file.heads[2], record_head_bytes, 1);
    recorded_options options(2, QRX_SEARCH | QRX_KEEP_DAMAGED);
    bytes restored(file.data.size());
    usize size = 0;
    EXPECT_EQ(qrx_decompress(&options, image.data(), image.size(), restored.data(), restored.size(),
                             &size),
              QRX_OK);
    EXPECT_EQ(restored, file.data);
    EXPECT_EQ(options.found(), std::vector{QRX_CORRUPT});
}

} // namespace
} // namespace quarnex::test
