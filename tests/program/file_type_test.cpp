// Compresses files of different types and restores filtered ones.
#include "plain/plain_filters.h"
#include "support/program_fixture.h"

namespace quarnex::test {
namespace {

struct kind_of_file {
    std::string name;
    bytes content;
    u8 lit_ctx_bits;
    u8 filter_flags;
};

bytes some_text(usize size)
{
    return find_shape("text").make(size, 1);
}

/// Parameterized by number of workers.
class round_trip_of_kinds : public program_with_threads {
  protected:
    void expect_round_trip(const kind_of_file& kind, const char* block_size = "-b1")
    {
        put(kind.name, kind.content);
        expect_silent_success(run({"-10", GetParam(), block_size, kind.name, "out"}));
        const bytes image = get("out/" + kind.name + ".qrx");
        ASSERT_GE(image.size(), 32U);
        EXPECT_EQ(image[16], kind.lit_ctx_bits) << kind.name;
        EXPECT_EQ(image[17], kind.filter_flags) << kind.name;
        expect_silent_success(run({"-d", GetParam(), "out/" + kind.name + ".qrx", "restored"}));
        EXPECT_TRUE(get("restored/" + kind.name) == kind.content) << kind.name;
    }

    void expect_all(const std::vector<kind_of_file>& kinds)
    {
        for (const kind_of_file& kind : kinds) expect_round_trip(kind);
    }
};

INSTANTIATE_TEST_SUITE_P(threads, round_trip_of_kinds, testing::Values("-p0", "-p2"),
                         thread_option_name);

TEST_P(round_trip_of_kinds, texts)
{
    expect_all({{"ascii", some_text(5000), 8, 0},
                {"marked", joined({{0xEF, 0xBB, 0xBF}, some_text(500)}), 8, 0},
                {"utf8", joined({some_text(500), {0xE2, 0x82, 0xAC}}), 8, 0},
                {"utf16_little", {0xFF, 0xFE, 'a', 0, 'b', 0}, 8, 0},
                {"utf16_big", {0xFE, 0xFF, 0, 'a', 0, 'b'}, 8, 0},
                {"iso_8859", joined({{0xE9}, some_text(500)}), 8, 0},
                {"extended", joined({{0x82}, some_text(500)}), 8, 0},
                {"ebcdic", {0xC8, 0x85, 0x93, 0x93, 0x96, 0x40, 0xA6, 0x15}, 8, 0}});
}

TEST_P(round_trip_of_kinds, binaries_by_extension)
{
    const bytes data = random_data(3000);
    expect_all({{"unknown", data, 0, 0},
                {"program.exe", data, 4, 1},
                {"LIBRARY.DLL", data, 4, 1},
                {"picture.bmp", data, 3, 0},
                {"photo.jpg", data, 1, 0},
                {"song.mp3", data, 2, 0},
                {"letter.doc", data, 1, 0},
                {"sheet.xls", data, 3, 0},
                {"archive.tar.gz", data, 1, 0},
                {"page.htm", data, 8, 0},
                {"source.c", data, 0, 0}});
}

TEST_P(round_trip_of_kinds, a_text_file_named_with_the_extension_exe_is_text_and_gets_no_filter)
{
    expect_round_trip({"letter.exe", some_text(5000), 8, 0});
}

TEST_P(round_trip_of_kinds, a_binary_file_with_the_extension_TXT_counts_as_text)
{
    expect_round_trip({"NAME.TXT", random_data(3000), 8, 0});
}

TEST_P(round_trip_of_kinds, an_empty_file_is_ascii)
{
    expect_round_trip({"empty", {}, 8, 0});
    expect_round_trip({"empty.exe", {}, 8, 0});
}

TEST_P(round_trip_of_kinds, a_2_byte_file_FF_FE_is_utf16)
{
    expect_round_trip({"mark", {0xFF, 0xFE}, 8, 0});
}

TEST_P(round_trip_of_kinds, a_valid_utf8_file_with_one_control_character_is_unknown)
{
    expect_round_trip({"control", joined({some_text(500), {0xC3, 0xA9, 0x01}}), 0, 0});
}

TEST_P(round_trip_of_kinds, only_the_first_mib_counts)
{
    const bytes zero{0};
    expect_round_trip({"after_it.exe", joined({some_text(mib), zero, some_text(mib)}), 8, 0},
                      "-b4");
    expect_round_trip({"in_it.exe", joined({some_text(mib - 1), zero, some_text(mib)}), 4, 1},
                      "-b4");
}

TEST_P(round_trip_of_kinds, a_whole_executable_in_several_blocks)
{
    const bytes self = read_file(own_executable());
    ASSERT_GT(self.size(), mib);
    expect_round_trip({"self.dll", self, 4, 1});
}

TEST_P(round_trip_of_kinds, each_block_of_an_executable_is_filtered_from_its_start)
{
    const bytes data = random_data(2 * mib); // stored, so the payloads are the filtered bytes
    expect_round_trip({"random.exe", data, 4, 1});
    const auto file = parse_qrx(get("out/random.exe.qrx"));
    ASSERT_TRUE(file);
    const auto payloads = payloads_in_order(*file);
    ASSERT_TRUE(payloads && payloads->size() == 2);
    EXPECT_TRUE(payloads->at(0) == plain_x86_filter({data.begin(), data.begin() + mib}, true));
    EXPECT_TRUE(payloads->at(1) == plain_x86_filter({data.begin() + mib, data.end()}, true));
    EXPECT_FALSE(payloads->at(0) == bytes(data.begin(), data.begin() + mib));
}

/// Parameterized by number of workers.
class restoring_filtered : public program_with_threads {
  protected:
    bytes restore(u8 filter_flags, const std::vector<qrx_record>& records, u64 size)
    {
        put("file.qrx",
            build_qrx({{.original_size = size, .filter_flags = filter_flags}, records}));
        expect_silent_success(run({"-d", GetParam(), "file.qrx", "out"}));
        return get("out/file");
    }
};

INSTANTIATE_TEST_SUITE_P(threads, restoring_filtered, testing::Values("-p0", "-p2"),
                         thread_option_name);

TEST_P(restoring_filtered, a_stored_block_with_the_x86_filter)
{
    // A call to offset 5 and a jump to offset 0.
    const bytes plain{0xE8, 0, 0, 0, 0, 0x90, 0xE9, 0xF5, 0xFF, 0xFF, 0xFF};
    const bytes filtered{0xE8, 5, 0, 0, 0, 0x90, 0xE9, 0, 0, 0, 0};
    for (const u8 flags : bytes{0x01, 0x81, 0xF1}) {
        EXPECT_EQ(restore(flags, {{0, filtered}}, plain.size()), plain) << int{flags};
    }
}

TEST_P(restoring_filtered, a_stored_block_with_the_delta_filter)
{
    EXPECT_EQ(restore(2, {{0, {10, 20, 30, 1, 0xFF, 0, 1, 1, 1, 5, 6}}}, 11),
              (bytes{10, 20, 30, 11, 19, 30, 12, 20, 31, 5, 6}));
}

TEST_P(restoring_filtered, coded_blocks_with_the_delta_filter_in_any_order)
{
    bytes expected(mib);
    for (u8 value = 1; value <= 24; ++value) expected.insert(expected.end(), 3, value);
    EXPECT_TRUE(restore(2,
                        {{displacement_of(1), m1_run_payload(1, 72)},
                         {displacement_of(-1), m1_run_payload(0, mib)}},
                        mib + 72) == expected);
}

} // namespace
} // namespace quarnex::test
