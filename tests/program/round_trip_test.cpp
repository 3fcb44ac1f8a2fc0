// Compresses and restores files with the program and checks every byte of the container.
#include "support/program_fixture.h"

#include "common/platform/cpu.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <numeric>

namespace quarnex::test {
namespace {

/// File contents by name; the extensions belong to no known file type.
using file_set = std::map<std::string, bytes>;

const file_set& files_of_edge_sizes()
{
    static const file_set files = [] {
        file_set files_by_name;
        std::vector<usize> sizes(70);
        std::iota(sizes.begin(), sizes.end(), usize{0});
        for (const usize edge : {usize{256}, usize{4096}, usize{65536}, mib, 2 * mib, 3 * mib}) {
            for (usize size = edge - 1; size <= edge + 1; ++size) sizes.push_back(size);
        }
        for (const usize size : sizes) {
            files_by_name[std::to_string(size)] = find_shape("mixture").make(size, size + 1);
        }
        return files_by_name;
    }();
    return files;
}

const file_set& files_of_all_shapes()
{
    static const file_set files = [] {
        file_set files_by_name;
        for (const shape& kind : all_shapes()) files_by_name[kind.name] = kind.make(3 * mib / 2, 5);
        return files_by_name;
    }();
    return files;
}

class round_trip : public program_fixture {
  protected:
    void put_all(const file_set& files) const
    {
        for (const auto& [name, data] : files) put(name, data);
    }

    /// Runs the program with `options` on all files, with or without the suffix.
    program_result run_on(const file_set& files, std::vector<std::string> options,
                          const std::string& prefix, const std::string& suffix,
                          const std::string& destination) const
    {
        for (const auto& [name, data] : files) options.push_back(prefix + name + suffix);
        options.push_back(destination);
        return run(options);
    }

    void expect_restored(const file_set& files, const std::string& directory) const
    {
        for (const auto& [name, data] : files) {
            EXPECT_TRUE(get(directory + "/" + name) == data) << name; // too long to be printed
        }
    }

    /// Parses out/`name`.qrx; returns no records if it is malformed.
    qrx_file compressed(const std::string& name) const
    {
        const auto file = parse_qrx(get("out/" + name + ".qrx"));
        EXPECT_TRUE(file) << name;
        return file.value_or(qrx_file{});
    }

    /// Compresses one file with blocks of 1 MiB.
    qrx_file compress(const bytes& data, std::vector<std::string> options = {"-10", "-p0"})
    {
        put("file", data);
        options.insert(options.end(), {"-b1", "file", "out"});
        expect_silent_success(run(options));
        return compressed("file");
    }
};

using level_and_threads = std::tuple<const char*, const char*>;

class round_trip_with : public round_trip, public testing::WithParamInterface<level_and_threads> {
  protected:
    void expect_round_trip(const file_set& files)
    {
        const auto [level, threads] = GetParam();
        put_all(files);
        expect_silent_success(run_on(files, {level, threads, "-b1"}, "", "", "out"));
        expect_silent_success(run_on(files, {"-d", threads}, "out/", ".qrx", "restored"));
        expect_restored(files, "restored");
    }
};

std::string name_of(const testing::TestParamInfo<level_and_threads>& test)
{
    const auto [level, threads] = test.param;
    return std::string("m") + (level + 1) + "_" + (threads + 1);
}

TEST_P(round_trip_with, sizes_around_block_limits)
{
    expect_round_trip(files_of_edge_sizes());
}

TEST_P(round_trip_with, data_of_all_shapes)
{
    expect_round_trip(files_of_all_shapes());
}

INSTANTIATE_TEST_SUITE_P(all, round_trip_with,
                         testing::Combine(testing::Values("-10", "-11", "-12"),
                                          testing::Values("-p0", "-p1", "-p2", "-p16")),
                         name_of);

/// Parameterized by method and level, as an option ("-10", ...).
class round_trip_of_cell : public round_trip, public testing::WithParamInterface<std::string> {};

std::vector<std::string> all_cells()
{
    std::vector<std::string> cells;
    for (char method = '1'; method <= '5'; ++method) {
        for (char level = '0'; level <= '9'; ++level) {
            cells.push_back({'-', method, level});
        }
    }
    return cells;
}

TEST_P(round_trip_of_cell, small_files_and_all_shapes)
{
    file_set files;
    for (usize size = 0; size < 70; ++size)
        files[std::to_string(size)] = find_shape("text").make(size, size);
    for (const shape& kind : all_shapes()) files[kind.name] = kind.make(100000, 5);
    put_all(files);
    expect_silent_success(run_on(files, {GetParam(), "-p2", "-b1", "-D14"}, "", "", "out"));
    expect_silent_success(run_on(files, {"-d", "-p2"}, "out/", ".qrx", "restored"));
    expect_restored(files, "restored");
}

INSTANTIATE_TEST_SUITE_P(all, round_trip_of_cell, testing::ValuesIn(all_cells()),
                         [](const auto& test) { return test.param.substr(1); });

TEST_F(round_trip, payloads_do_not_depend_on_the_number_of_workers)
{
    const file_set& files = files_of_all_shapes();
    put_all(files);
    run_on(files, {"-12", "-p0", "-b1"}, "", "", "plain");
    for (const char* threads : {"-p1", "-p2", "-p16"}) {
        expect_silent_success(run_on(files, {"-12", threads, "-b1"}, "", "", "out"));
        for (const auto& [name, data] : files) {
            const auto plain = parse_qrx(get("plain/" + name + ".qrx"));
            const qrx_file file = compressed(name);
            ASSERT_TRUE(plain);
            EXPECT_EQ(file.header, plain->header);
            EXPECT_TRUE(payloads_in_order(file) == payloads_in_order(*plain)) << name << threads;
        }
    }
}

TEST_F(round_trip, payloads_of_many_blocks_are_complete_in_any_order)
{
    bytes data = find_shape("mixture").make(24 * mib, 7);
    const auto plain = payloads_in_order(compress(data));
    ASSERT_TRUE(plain);
    for (const char* threads : {"-p1", "-p2", "-p16"}) {
        const qrx_file file = compress(data, {"-10", threads});
        EXPECT_TRUE(payloads_in_order(file) == plain) << threads;
    }
}

TEST_F(round_trip, a_file_of_more_blocks_than_a_displacement_can_encode)
{
    const usize size = 200 * mib + 1;
    put("file", {});
    std::filesystem::resize_file(dir / "file", size);
    expect_silent_success(run({"-10", "-p2", "-b1", "file", "out"}));
    const qrx_file file = compressed("file");
    EXPECT_EQ(file.records.size(), 201U);
    EXPECT_TRUE(payloads_in_order(file));
    expect_silent_success(run({"-d", "-p2", "out/file.qrx", "restored"}));
    EXPECT_TRUE(get("restored/file") == bytes(size));
}

TEST_F(round_trip, with_one_worker_or_none_all_displacements_are_0)
{
    for (const char* threads : {"-p0", "-p1"}) {
        const qrx_file file = compress(find_shape("text").make(9 * mib / 2, 3), {"-11", threads});
        ASSERT_EQ(file.records.size(), 5U);
        for (const qrx_record& record : file.records) EXPECT_EQ(record.displacement, 0);
    }
}

TEST_F(round_trip, blocks_of_several_files_are_counted_per_file)
{
    file_set files;
    for (usize i = 0; i < 12; ++i) {
        files[std::to_string(i)] = find_shape("mixture").make((i % 4) * mib + i, i);
    }
    put_all(files);
    expect_silent_success(run_on(files, {"-10", "-p2", "-b1"}, "", "", "out"));
    for (const auto& [name, data] : files) {
        const auto payloads = payloads_in_order(compressed(name));
        ASSERT_TRUE(payloads) << name;
        EXPECT_EQ(payloads->size(), data.empty() ? 1 : (data.size() + mib - 1) / mib) << name;
    }
}

// The container

TEST_F(round_trip, header_byte_by_byte)
{
    put("file", random_data(0x012345));
    expect_silent_success(run({"-12", "-p0", "-b258", "-D20", "file", "out"}));
    const bytes expected{
        0x00, 'Q',  'R',  '0',              // magic
        0x45, 0x23, 0x01, 0,    0, 0, 0, 0, // original size
        1,    2,    0,    0,                // method, level, reserved
        0,    0,    0x02, 0x01,             // literal context bits, filter, block size in MiB
        20,   0,    0,    0,                // hash bits
        1,    0,    0,    0,                // chain bits
        0,    0,    0,    0,                // always zero
        0x45, 0x23, 0x01, 0,    0           // the head of the first record: it is stored
    };
    bytes image = get("out/file.qrx");
    ASSERT_EQ(image.size(), 37 + 0x012345U);
    image.resize(expected.size());
    EXPECT_EQ(image, expected);
}

TEST_F(round_trip, header_has_a_block_size_of_32_by_default)
{
    put("file", random_data(10));
    run({"-10", "file", "out"});
    EXPECT_EQ(compressed("file").header.block_mb, 32);
}

TEST_F(round_trip, header_has_a_block_size_of_at_most_16_at_levels_4_to_7)
{
    put("file", random_data(10));
    const std::map<std::string, u16> expected{{"-13", 64}, {"-14", 16}, {"-17", 16}, {"-18", 64},
                                              {"-19", 64}, {"-53", 64}, {"-54", 16}, {"-57", 16},
                                              {"-58", 64}, {"-59", 64}};
    for (const auto& [option, block_mb] : expected) {
        expect_silent_success(run({option, "-b64", "-D12", "file", "out"}));
        EXPECT_EQ(compressed("file").header.block_mb, block_mb) << option;
    }
}

TEST_F(round_trip, header_has_the_table_sizes_of_the_slow_levels)
{
    struct table_sizes {
        char level;
        u32 hash_bits;
        u32 chain_bits;
    };
    for (const auto& [level, hash_bits, chain_bits] : {table_sizes{'3', 23, 1},
                                                       {'4', 24, 2},
                                                       {'5', 25, 3},
                                                       {'6', 25, 4},
                                                       {'7', 25, 6},
                                                       {'8', 26, 7},
                                                       {'9', 27, 8}}) {
        for (const char method : {'1', '5'}) {
            const std::string option{'-', method, level};
            const qrx_header header = compress(random_data(10), {option}).header;
            EXPECT_EQ(header.hash_bits, hash_bits) << method << level;
            EXPECT_EQ(header.chain_bits, chain_bits) << method << level;
        }
    }
}

TEST_F(round_trip, header_has_the_hash_bits_of_the_level)
{
    const u32 cache_kib = second_level_cache_kib();
    const u32 more = cache_kib > 1024 ? 3 : cache_kib > 512 ? 2 : 0;
    const std::map<std::string, u32> expected{{"-10", 12 + more}, {"-11", 14 + more}, {"-12", 18}};
    for (const auto& [option, hash_bits] : expected) {
        EXPECT_EQ(compress(random_data(10), {option}).header.hash_bits, hash_bits) << option;
        EXPECT_EQ(compress(random_data(10), {option, "-D9"}).header.hash_bits, hash_bits);
        EXPECT_EQ(compress(random_data(10), {option, "-D-20"}).header.hash_bits, hash_bits);
        EXPECT_EQ(compress(random_data(10), {option, "-D10"}).header.hash_bits, 10U);
        EXPECT_EQ(compress(random_data(10), {option}).header.chain_bits, 1U);
    }
}

TEST_F(round_trip, an_empty_file_is_a_header_and_one_empty_record)
{
    for (const char* threads : {"-p0", "-p2"}) {
        const qrx_file file = compress({}, {"-10", threads});
        EXPECT_EQ(get("out/file.qrx").size(), 37U);
        EXPECT_EQ(file.header.original_size, 0U);
        ASSERT_EQ(file.records.size(), 1U);
        EXPECT_EQ(file.records[0].displacement, 0);
        EXPECT_EQ(file.records[0].payload, bytes{});
    }
}

TEST_F(round_trip, an_exact_multiple_of_the_block_size_has_no_trailing_empty_record)
{
    for (const char* threads : {"-p0", "-p2"}) {
        const bytes data = random_data(3 * mib);
        const auto payloads = payloads_in_order(compress(data, {"-10", threads}));
        ASSERT_TRUE(payloads);
        ASSERT_EQ(payloads->size(), 3U);
        for (const bytes& payload : *payloads) EXPECT_EQ(payload.size(), mib);
    }
}

TEST_F(round_trip, a_file_smaller_than_the_block_size_has_one_record)
{
    const qrx_file file = compress(random_data(mib - 1));
    EXPECT_EQ(file.header.block_mb, 1);
    ASSERT_EQ(file.records.size(), 1U);
    EXPECT_EQ(file.records[0].payload.size(), mib - 1);
}

TEST_F(round_trip, incompressible_blocks_are_stored)
{
    for (const char* threads : {"-p0", "-p2"}) {
        for (const char* level : {"-10", "-11", "-12"}) {
            const bytes data = random_data(mib + 5000);
            const auto payloads = payloads_in_order(compress(data, {level, threads}));
            ASSERT_TRUE(payloads && payloads->size() == 2);
            EXPECT_TRUE(payloads->at(0) == bytes(data.begin(), data.begin() + mib));
            EXPECT_TRUE(payloads->at(1) == bytes(data.begin() + mib, data.end()));
        }
    }
}

TEST_F(round_trip, payloads_are_never_longer_than_their_blocks)
{
    const file_set& files = files_of_edge_sizes();
    put_all(files);
    expect_silent_success(run_on(files, {"-12", "-p2", "-b1"}, "", "", "out"));
    for (const auto& [name, data] : files) {
        const auto payloads = payloads_in_order(compressed(name));
        ASSERT_TRUE(payloads) << name;
        for (usize i = 0; i < payloads->size(); ++i) {
            EXPECT_LE(payloads->at(i).size(), std::min(mib, data.size() - i * mib)) << name;
        }
    }
}

TEST_F(round_trip, a_run_of_zeros_becomes_small)
{
    const qrx_file file = compress(bytes(mib), {"-10", "-p0"});
    ASSERT_EQ(file.records.size(), 1U);
    EXPECT_EQ(file.records[0].payload.size(), 12U); // one match, its length in three bytes
}

// Restoring files that this program doesn't write

/// Parameterized by number of workers.
class restoring : public program_with_threads {
  protected:
    program_result restore(const qrx_file& file) { return restore_image(build_qrx(file)); }

    program_result restore_image(const bytes& image)
    {
        put("file.qrx", image);
        return run({"-d", GetParam(), "file.qrx", "out"});
    }

    /// Returns a file of four blocks in order; block i is a run of 'a' + i, the last has 100 bytes.
    static qrx_file four_runs()
    {
        qrx_file file;
        file.header.original_size = 3 * mib + 100;
        for (u8 i = 0; i < 4; ++i) {
            const u32 length = i < 3 ? u32{mib} : 100;
            file.records.push_back({0, m1_run_payload(static_cast<u8>('a' + i), length)});
        }
        return file;
    }

    static bytes four_runs_data()
    {
        bytes data;
        for (u8 i = 0; i < 3; ++i) data.insert(data.end(), mib, static_cast<u8>('a' + i));
        data.insert(data.end(), 100, 'd');
        return data;
    }

    /// Returns `file` with block order[i] in record i.
    static qrx_file reordered(const qrx_file& file, const std::vector<u8>& order)
    {
        qrx_file result{file.header, {}};
        for (usize i = 0; i < order.size(); ++i) {
            result.records.push_back(file.records[order[i]]);
            result.records[i].displacement = displacement_of(order[i] - static_cast<i32>(i));
        }
        return result;
    }
};

TEST_P(restoring, records_in_order)
{
    expect_silent_success(restore(four_runs()));
    EXPECT_TRUE(get("out/file") == four_runs_data());
}

TEST_P(restoring, the_second_block_in_the_first_record)
{
    const qrx_file file = reordered(four_runs(), {1, 0, 2, 3});
    EXPECT_EQ(file.records[0].displacement, 2);
    EXPECT_EQ(file.records[1].displacement, 3);
    expect_silent_success(restore(file));
    EXPECT_TRUE(get("out/file") == four_runs_data());
}

TEST_P(restoring, records_in_every_order)
{
    std::vector<u8> order{0, 1, 2, 3};
    do {
        expect_silent_success(restore(reordered(four_runs(), order)));
        EXPECT_TRUE(get("out/file") == four_runs_data());
        std::filesystem::remove(dir / "out/file");
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST_P(restoring, a_block_written_past_the_end_leaves_a_gap_that_a_later_one_fills)
{
    // 128 blocks: the last one comes first, so all others are one record late.
    qrx_file file;
    file.header.original_size = 127 * mib + 68;
    file.records.push_back({displacement_of(127), m1_run_payload('z', 68)});
    bytes data;
    for (u32 i = 0; i < 127; ++i) {
        file.records.push_back({displacement_of(-1), m1_run_payload(static_cast<u8>(i), mib)});
        data.insert(data.end(), mib, static_cast<u8>(i));
    }
    data.insert(data.end(), 68, 'z');
    expect_silent_success(restore(file));
    EXPECT_TRUE(get("out/file") == data);
}

TEST_P(restoring, a_block_above_4_gib)
{
    constexpr u64 start = u64{80} * 64 * mib;
    qrx_file file{{}, {{displacement_of(80), random_data(68)}}}; // all other blocks are missing
    file.header.original_size = start + 68;
    file.header.block_mb = 64;
    expect_silent_success(restore(file));
    EXPECT_EQ(std::filesystem::file_size(dir / "out/file"), start + 68);
    std::ifstream restored(dir / "out/file", std::ios::binary);
    restored.seekg(static_cast<std::streamoff>(start));
    const bytes block{std::istreambuf_iterator<char>(restored), {}};
    EXPECT_EQ(block, file.records[0].payload);
}

TEST_P(restoring, stored_and_coded_blocks_side_by_side)
{
    qrx_file file = four_runs();
    file.records[1].payload = random_data(mib);
    expect_silent_success(restore(file));
    bytes data = four_runs_data();
    std::copy_n(file.records[1].payload.begin(), mib, data.begin() + mib);
    EXPECT_TRUE(get("out/file") == data);
}

TEST_P(restoring, the_first_byte_of_the_file_is_not_compared)
{
    bytes image = build_qrx(four_runs());
    image[0] = 0xFF;
    expect_silent_success(restore_image(image));
    EXPECT_TRUE(get("out/file") == four_runs_data());
}

TEST_P(restoring, reserved_fields_and_table_sizes_of_the_header_are_ignored)
{
    bytes image = build_qrx(four_runs());
    const std::vector<usize> unused{14, 15, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31};
    for (const usize at : unused) image[at] = 0xA5;
    expect_silent_success(restore_image(image));
    EXPECT_TRUE(get("out/file") == four_runs_data());
}

TEST_P(restoring, a_record_of_size_0_in_an_empty_file_writes_nothing)
{
    expect_silent_success(restore({{}, {{0, {}}}}));
    EXPECT_TRUE(exists("out/file"));
    EXPECT_EQ(get("out/file"), bytes{});
}

TEST_P(restoring, a_header_alone_gives_an_empty_file)
{
    qrx_file file = four_runs();
    file.records.clear();
    expect_silent_success(restore(file));
    EXPECT_TRUE(exists("out/file"));
    EXPECT_EQ(get("out/file"), bytes{});
}

TEST_P(restoring, block_sizes_that_the_command_line_rejects)
{
    for (const u16 block_mb : {u16{2048}, u16{4096}, u16{65535}}) {
        qrx_file file{{}, {{0, m1_run_payload('k', 100)}}};
        file.header.original_size = 100;
        file.header.block_mb = block_mb;
        expect_silent_success(restore(file));
        EXPECT_EQ(get("out/file"), bytes(100, 'k')) << block_mb;
    }
}

TEST_P(restoring, a_stored_block_of_an_unknown_method_is_copied)
{
    settings.timeout_seconds = 10;
    for (const u8 method : {u8{0}, u8{6}, u8{7}, u8{8}, u8{9}, u8{254}, u8{255}}) {
        qrx_file file{{}, {{0, random_data(mib)}, {0, random_data(500, 2)}}};
        file.header.original_size = mib + 500;
        file.header.method = method;
        expect_silent_success(restore(file));
        bytes data = file.records[0].payload;
        data.insert(data.end(), file.records[1].payload.begin(), file.records[1].payload.end());
        EXPECT_TRUE(get("out/file") == data) << int{method};
        std::filesystem::remove(dir / "out/file");
    }
}

INSTANTIATE_TEST_SUITE_P(threads, restoring, testing::Values("-p0", "-p1", "-p2", "-p16"),
                         thread_option_name);

} // namespace
} // namespace quarnex::test
