// Restores truncated, damaged and hostile files.
#include "support/program_fixture.h"

#include <algorithm>
#include <cstring>

namespace quarnex::test {
namespace {

const std::string too_short = std::string("103: read error. errno=0 '") + std::strerror(0) + "'";
constexpr const char* no_header = "104: file header. no quarnex format";
constexpr const char* corrupted = "105: file is corrupted";

/// Parameterized by number of workers.
class damaged_file : public program_with_threads {
  protected:
    program_result restore(const bytes& image)
    {
        put("file.qrx", image);
        return run({"-d", GetParam(), "file.qrx", "out"});
    }

    /// Returns a file of `blocks` blocks of 1 MiB; block i is a run of 'a' + i.
    static qrx_file runs(u32 blocks)
    {
        qrx_file file;
        file.header.original_size = blocks * mib;
        for (u32 i = 0; i < blocks; ++i) {
            file.records.push_back({0, m1_run_payload(static_cast<u8>('a' + i), mib)});
        }
        return file;
    }

    /// Returns the image of `file` with `size` in the head of its first record.
    static bytes with_first_size(const qrx_file& file, u32 size)
    {
        bytes image = build_qrx(file);
        for (usize i = 0; i < 4; ++i) image[header_bytes + i] = static_cast<u8>(size >> (8 * i));
        return image;
    }

    /// Returns a file with one record, `payload`, for a block of `length` bytes.
    static qrx_file single_block(u64 length, bytes payload)
    {
        qrx_file file{{}, {{0, std::move(payload)}}};
        file.header.original_size = length;
        return file;
    }
};

// Headers

TEST_P(damaged_file, a_short_header_ends_the_process)
{
    const bytes image = build_qrx(runs(1));
    for (const usize size : std::vector<usize>{0, 1, 4, 31}) {
        const bytes cut(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(size));
        expect_fatal_error(restore(cut), "file.qrx", too_short);
        EXPECT_FALSE(exists("out/file"));
    }
}

TEST_P(damaged_file, each_letter_of_the_magic_is_compared)
{
    for (const usize at : std::vector<usize>{1, 2, 3}) {
        bytes image = build_qrx(runs(1));
        image[at] ^= 0x20;
        expect_fatal_error(restore(image), "file.qrx", no_header, "'file.qrx' not qrx file\n");
        EXPECT_FALSE(exists("out/file"));
    }
}

TEST_P(damaged_file, a_level_above_9_is_corrupt)
{
    for (const u8 level : {u8{10}, u8{255}}) {
        qrx_file file = runs(1);
        file.header.level = level;
        expect_fatal_error(restore(build_qrx(file)), "file.qrx", corrupted);
    }
}

TEST_P(damaged_file, a_block_size_of_0_is_corrupt)
{
    qrx_file file = runs(1);
    file.header.block_mb = 0;
    expect_fatal_error(restore(build_qrx(file)), "file.qrx", corrupted);
}

TEST_P(damaged_file, a_bad_header_leaves_an_existing_output_alone)
{
    const program_result made = run({"-10", "nothing", "out"}); // creates the directory
    ASSERT_EQ(made.status, 0);
    put("out/file", bytes_of("old"));
    qrx_file file = runs(1);
    file.header.level = 10;
    restore(build_qrx(file));
    EXPECT_EQ(get("out/file"), bytes_of("old"));
}

TEST_P(damaged_file, a_coded_block_of_an_unknown_method_is_corrupt)
{
    for (const u8 method : {u8{0}, u8{6}, u8{7}, u8{8}, u8{9}, u8{255}}) {
        qrx_file file = runs(1);
        file.header.method = method;
        expect_fatal_error(restore(build_qrx(file)), "file.qrx", corrupted);
    }
}

// Truncated files

TEST_P(damaged_file, a_file_that_ends_within_a_record_head_ends_silently)
{
    const bytes whole = build_qrx(runs(3));
    const auto third = static_cast<std::ptrdiff_t>(
        header_bytes + 2 * (record_head_bytes + m1_run_payload(0, mib).size()));
    bytes two_blocks(mib, 'a');
    two_blocks.insert(two_blocks.end(), mib, 'b');
    for (std::ptrdiff_t part = 0; part < 5; ++part) {
        expect_silent_success(restore(bytes(whole.begin(), whole.begin() + third + part)));
        EXPECT_TRUE(get("out/file") == two_blocks) << part;
    }
}

TEST_P(damaged_file, a_file_that_ends_within_a_payload_reports_the_bytes_read)
{
    const qrx_file file = single_block(mib, m1_run_payload('a', mib));
    ASSERT_EQ(file.records[0].payload.size(), 14U);
    const bytes whole = build_qrx(file);
    for (const int missing : {14, 9, 1}) {
        const std::string got = std::to_string(14 - missing);
        expect_fatal_error(restore(bytes(whole.begin(), whole.end() - missing)), "file.qrx",
                           too_short, "err=, 14," + got + " ");
    }
}

TEST_P(damaged_file, a_payload_larger_than_the_file_allocates_no_memory)
{
    qrx_file file = single_block(2047 * mib, bytes(3));
    file.header.block_mb = 2047;
    expect_fatal_error(restore(with_first_size(file, 2000 * mib)), "file.qrx", too_short,
                       "err=, 2097152000,3 ");
}

// Record heads

TEST_P(damaged_file, a_record_size_above_the_block_length_is_corrupt)
{
    const qrx_file file = single_block(100, bytes(100));
    for (const u32 size : {101U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFBFFU, 0xFFFFFFFFU}) {
        expect_fatal_error(restore(with_first_size(file, size)), "file.qrx", corrupted);
    }
}

TEST_P(damaged_file, the_last_block_is_as_long_as_the_rest_of_the_file)
{
    qrx_file file = runs(1);
    file.header.original_size = mib + 10;
    file.records.push_back({0, bytes(11)});
    const program_result result = restore(build_qrx(file));
    expect_fatal_error(result, "file.qrx", corrupted);
}

TEST_P(damaged_file, a_negative_block_index_is_corrupt)
{
    qrx_file file = runs(2);
    file.records[0].displacement = displacement_of(-1);
    expect_fatal_error(restore(build_qrx(file)), "file.qrx", corrupted);
}

TEST_P(damaged_file, a_block_index_past_the_last_block_is_corrupt)
{
    for (const i32 distance : {2, 3, 127}) {
        qrx_file file = runs(2);
        file.records[0].displacement = displacement_of(distance);
        expect_fatal_error(restore(build_qrx(file)), "file.qrx", corrupted);
    }
}

TEST_P(damaged_file, an_empty_file_has_no_second_record)
{
    expect_fatal_error(restore(build_qrx({{}, {{0, {}}, {0, {}}}})), "file.qrx", corrupted);
    expect_fatal_error(restore(build_qrx({{}, {{displacement_of(1), {}}}})), "file.qrx", corrupted);
    expect_fatal_error(restore(build_qrx({{}, {{0, bytes(1)}}})), "file.qrx", corrupted);
}

TEST_P(damaged_file, more_records_than_blocks_are_corrupt)
{
    qrx_file file = runs(3);
    file.records.push_back({displacement_of(-1), m1_run_payload('x', mib)});
    expect_fatal_error(restore(build_qrx(file)), "file.qrx", corrupted);
}

TEST_P(damaged_file, a_repeated_block_leaves_another_one_missing)
{
    qrx_file file = runs(3);
    file.records[1].displacement = displacement_of(-1);
    file.records[1].payload = file.records[0].payload;
    expect_silent_success(restore(build_qrx(file)));
    bytes data(2 * mib);
    std::fill_n(data.begin(), mib, u8{'a'});
    data.insert(data.end(), mib, 'c');
    EXPECT_TRUE(get("out/file") == data);
}

TEST_P(damaged_file, a_size_of_2_to_the_64_minus_1)
{
    // A first block of full length, in a file of 2^64 - 1 bytes; then a block of 65535 MiB.
    qrx_file file = runs(1);
    file.header.original_size = ~u64{0};
    expect_silent_success(restore(build_qrx(file)));
    EXPECT_TRUE(get("out/file") == bytes(mib, 'a'));
    file.header.block_mb = 65535;
    expect_fatal_error(restore(build_qrx(file)), "file.qrx", corrupted);
}

// Payloads

TEST_P(damaged_file, a_block_decoded_short_is_reported_and_padded_to_its_length)
{
    const program_result result =
        restore(build_qrx(single_block(mib, m1_run_payload('a', 100000))));
    EXPECT_EQ(result.out, "Fatal Error in decomp 'out/file'.100000,1048576\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    bytes data(100000, 'a');
    data.resize(mib); // the missing part is zeros
    EXPECT_TRUE(get("out/file") == data);
}

TEST_P(damaged_file, the_other_blocks_of_a_file_with_a_damaged_one_are_restored)
{
    qrx_file file = runs(3);
    file.records[1].payload = {'x', 0, 0, 0, 0xC0, 0xEB, 0}; // ends after its first byte
    const program_result result = restore(build_qrx(file));
    EXPECT_EQ(result.out, "Fatal Error in decomp 'out/file'.1,1048576\n");
    EXPECT_EQ(result.status, 0);
    bytes data(mib, 'a');
    data.push_back('x');
    data.resize(2 * mib);
    data.insert(data.end(), mib, 'c');
    EXPECT_TRUE(get("out/file") == data);
}

TEST_P(damaged_file, an_empty_payload_of_a_block_that_is_not_empty)
{
    const program_result result = restore(build_qrx(single_block(1000, {})));
    EXPECT_EQ(result.out, "Fatal Error in decomp 'out/file'.0,1000\n");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(get("out/file"), bytes(1000));
}

TEST_P(damaged_file, a_match_that_reaches_before_the_block_ends_it)
{
    // 'x', then a match at distance 2.
    const program_result result =
        restore(build_qrx(single_block(50, {'x', 0, 0, 0, 0xC0, 0x07, 2, 0xEB, 0})));
    EXPECT_EQ(result.out, "Fatal Error in decomp 'out/file'.1,50\n");
    EXPECT_EQ(result.status, 0);
}

TEST_P(damaged_file, a_match_that_runs_past_the_block_is_cut)
{
    expect_silent_success(restore(build_qrx(single_block(500, m1_run_payload('a', 700)))));
    EXPECT_EQ(get("out/file"), bytes(500, 'a'));
}

TEST_P(damaged_file, arbitrary_payloads_decode_to_an_output_of_the_block_length)
{
    for (usize seed = 1; seed <= 20; ++seed) {
        const program_result result =
            restore(build_qrx(single_block(70000, random_data(seed * 997, seed))));
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(get("out/file").size(), 70000U);
    }
}

// The names that follow

TEST_P(damaged_file, a_failure_with_a_code_skips_the_names_that_follow)
{
    put("good.qrx", build_qrx(runs(1)));
    put("bad.qrx", bytes(10));
    expect_fatal_error(run({"-d", GetParam(), "bad.qrx", "good.qrx", "out"}), "bad.qrx", too_short);
    EXPECT_FALSE(exists("out/good"));
}

TEST_P(damaged_file, a_silently_truncated_file_is_followed_by_the_next_name)
{
    put("good.qrx", build_qrx(runs(1)));
    bytes cut = build_qrx(runs(1));
    cut.resize(header_bytes + 3);
    put("cut.qrx", cut);
    expect_silent_success(run({"-d", GetParam(), "cut.qrx", "good.qrx", "out"}));
    EXPECT_EQ(get("out/cut"), bytes{});
    EXPECT_TRUE(get("out/good") == bytes(mib, 'a'));
}

INSTANTIATE_TEST_SUITE_P(threads, damaged_file, testing::Values("-p0", "-p2"), thread_option_name);

} // namespace
} // namespace quarnex::test
