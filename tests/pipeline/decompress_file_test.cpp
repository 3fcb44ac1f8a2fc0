#include "pipeline/decompress_driver.h"
#include "support/captured_output.h"

#include <cstring>

namespace quarnex::test {
namespace {

INSTANTIATE_TEST_SUITE_P(, decompress_driver, testing::Values(0, 1, 3), workers_name);

bytes shuffled_content()
{
    bytes content(block_bytes, 'a');
    content.resize(2 * block_bytes, 'b');
    content.resize(2 * block_bytes + 100, 'c');
    return content;
}

TEST_P(decompress_driver, records_in_any_order_are_put_to_their_places)
{
    captured_output printed;
    expect_success(run(shuffled_file()));
    EXPECT_EQ(printed.out() + printed.err(), "");
    EXPECT_TRUE(restored() == shuffled_content());
}

TEST_P(decompress_driver, nothing_stays_open)
{
    const usize before = open_descriptors();
    expect_success(run(shuffled_file()));
    EXPECT_EQ(open_descriptors(), before);
}

TEST_P(decompress_driver, a_file_of_exactly_n_blocks_ends_with_a_full_one)
{
    expect_success(
        run(qrx_file{{.original_size = 2 * block_bytes}, {full_block('a'), full_block('b')}}));
    EXPECT_EQ(restored().size(), 2 * mib);
}

TEST_P(decompress_driver, an_empty_record_of_an_empty_file_passes_as_stored_and_writes_nothing)
{
    captured_output printed;
    expect_success(run(qrx_file{{}, {{0, {}}}}));
    EXPECT_EQ(printed.out(), "");
    EXPECT_TRUE(file_exists(dir / "out"));
    EXPECT_EQ(restored(), bytes());
}

TEST_P(decompress_driver, a_payload_as_long_as_its_block_is_copied_even_if_there_is_no_such_method)
{
    const bytes content = find_shape("random").make(1000, 4);
    expect_success(run(qrx_file{{.original_size = 1000, .method = 200}, {{0, content}}}));
    EXPECT_EQ(restored(), content);
}

TEST_P(decompress_driver, the_filter_is_undone_in_stored_and_coded_blocks_each_from_its_start)
{
    bytes stored(block_bytes); // all differences are 0 but those of the first group
    stored[0] = 7;
    const qrx_file file{{.original_size = 2 * block_bytes + 72, .filter_flags = 0xF2},
                        {{displacement_of(2), m1_run_payload(1, 72)},
                         {displacement_of(-1), stored},
                         {displacement_of(-1), m1_run_payload(0, block_bytes)}}};
    bytes expected;
    while (expected.size() < block_bytes - 1) expected.insert(expected.end(), {7, 0, 0});
    expected.resize(2 * block_bytes); // 2^20 = 3 x 349525 + 1: a block's last byte is in no group
    for (u8 value = 1; value <= 24; ++value) expected.insert(expected.end(), 3, value);
    captured_output printed;
    expect_success(run(file));
    EXPECT_EQ(printed.out() + printed.err(), "");
    EXPECT_TRUE(restored() == expected);
}

TEST_P(decompress_driver, filters_that_do_not_exist_are_none)
{
    for (const u8 flags : bytes{0, 3, 4, 15, 0xF0}) {
        expect_success(run(
            qrx_file{{.original_size = 6, .filter_flags = flags}, {{0, {0xE8, 1, 0, 0, 0, 2}}}}));
        EXPECT_EQ(restored(), (bytes{0xE8, 1, 0, 0, 0, 2})) << int{flags};
    }
}

TEST_P(decompress_driver, a_suffix_in_any_mix_of_cases_is_cut_off_and_other_names_get_out_behind)
{
    struct name_case {
        const char* destination;
        const char* output;
    };
    write_file(dir / "in", build_qrx({{.original_size = 1}, {{0, {'x'}}}}));
    for (const auto& [destination, output] : {name_case{"a.qrx", "a"},
                                              {"b.QrX", "b"},
                                              {"c.QRX", "c"},
                                              {"d", "d.out"},
                                              {"e.qr", "e.qr.out"},
                                              {"f.qrx.x", "f.qrx.x.out"}}) {
        expect_success(decompress(GetParam(), dir / "in", dir / destination));
        EXPECT_EQ(read_file(dir / output), bytes{'x'}) << destination;
    }
}

TEST_P(decompress_driver, a_file_cut_off_inside_a_record_head_ends_quietly_with_a_short_output)
{
    const bytes whole = build_qrx({{.original_size = 200}, {{0, m1_run_payload('a', 100)}}});
    for (usize cut = 0; cut < 5; ++cut) {
        captured_output printed;
        const auto end = whole.begin() + static_cast<std::ptrdiff_t>(32 + cut);
        expect_success(run(bytes(whole.begin(), end)));
        EXPECT_EQ(printed.out() + printed.err(), "");
        EXPECT_EQ(restored(), bytes());
    }
}

TEST_P(decompress_driver, a_file_cut_off_behind_a_record_ends_quietly_with_a_short_output)
{
    expect_success(
        run(qrx_file{{.original_size = 3 * block_bytes}, {full_block('a'), full_block('b')}}));
    EXPECT_EQ(restored().size(), 2 * mib);
}

const error_recorder::failure no_bytes_failure{error_read, std::string("read error. errno=0 '") +
                                                               std::strerror(0) + "'"};

TEST_P(decompress_driver, a_file_cut_off_inside_a_payload_gives_the_read_message)
{
    const bytes payload = m1_run_payload('a', 100);
    bytes image = build_qrx({{.original_size = 100}, {{0, payload}}});
    image.pop_back();
    captured_output printed;
    expect_driver_failure(run(image), no_bytes_failure);
    EXPECT_EQ(printed.out(), "err=, " + std::to_string(payload.size()) + "," +
                                 std::to_string(payload.size() - 1) + " ");
}

TEST_P(decompress_driver, a_header_too_short_is_failure_103_and_creates_nothing)
{
    for (const usize size : {0U, 1U, 31U}) {
        captured_output printed;
        expect_driver_failure(run(bytes(size)), no_bytes_failure);
        EXPECT_EQ(printed.out(), "");
        EXPECT_FALSE(file_exists(dir / "out"));
    }
}

TEST_P(decompress_driver, a_file_without_the_magic_letters_is_told_and_is_failure_104)
{
    captured_output printed;
    expect_driver_failure(run(bytes(100, 'x')),
                          {error_no_header, "file header. no quarnex format"});
    EXPECT_EQ(printed.out(), "'" + dir / "in" + "' not qrx file\n");
    EXPECT_FALSE(file_exists(dir / "out"));
}

TEST_P(decompress_driver, the_byte_before_the_magic_letters_is_not_looked_at)
{
    bytes image = build_qrx({{.original_size = 1}, {{0, {'x'}}}});
    image[0] = 0xFF;
    expect_success(run(image));
    EXPECT_EQ(restored(), bytes{'x'});
}

TEST_P(decompress_driver, a_header_with_impossible_numbers_is_damage)
{
    expect_driver_failure(run(qrx_file{{.original_size = 1, .level = 10}, {{0, {'x'}}}}),
                          corrupted_failure);
    expect_driver_failure(run(qrx_file{{.original_size = 1, .level = 255}, {{0, {'x'}}}}),
                          corrupted_failure);
    expect_driver_failure(run(qrx_file{{.original_size = 1, .block_mb = 0}, {{0, {'x'}}}}),
                          corrupted_failure);
}

TEST_P(decompress_driver, a_stream_of_a_method_that_does_not_exist_is_damage)
{
    for (const u8 method : bytes{0, 6, 7, 8, 255}) {
        const qrx_header header{.original_size = 100, .method = method};
        expect_driver_failure(run(qrx_file{header, {{0, m1_run_payload('a', 100)}}}),
                              corrupted_failure);
    }
}

TEST_P(decompress_driver, a_payload_larger_than_its_block_is_damage)
{
    expect_driver_failure(run(qrx_file{{.original_size = 10}, {{0, bytes(11)}}}),
                          corrupted_failure);
    expect_driver_failure(run(qrx_file{{}, {{0, bytes(1)}}}), corrupted_failure);
}

TEST_P(decompress_driver, a_payload_size_that_would_be_negative_as_signed_is_damage)
{
    for (const u8 top : bytes{0x7F, 0x80, 0xFF}) {
        bytes image = build_qrx({{.original_size = ~u64{0}, .block_mb = 0xFFFF}, {}});
        image.insert(image.end(), {0xFF, 0xFF, 0xFF, top, 0});
        captured_output printed;
        const driver_run result = run(image);
        EXPECT_EQ(result.result, -error_corrupted) << int{top};
        recorder.take();
    }
}

TEST_P(decompress_driver, a_block_index_before_or_behind_the_file_is_damage)
{
    for (const i32 distance : {-1, 2, 127}) {
        const qrx_header header{.original_size = 2 * block_bytes};
        expect_driver_failure(run(qrx_file{header, {full_block('a', distance)}}),
                              corrupted_failure);
    }
    expect_driver_failure(run(qrx_file{{}, {{displacement_of(1), {}}}}), corrupted_failure);
}

TEST_P(decompress_driver, a_record_more_than_there_are_blocks_is_damage)
{
    const qrx_header header{.original_size = block_bytes};
    expect_driver_failure(run(qrx_file{header, {full_block('a'), full_block('a', -1)}}),
                          corrupted_failure);
    EXPECT_TRUE(restored() == bytes(mib, 'a'));
}

TEST_P(decompress_driver, a_decoder_with_another_length_is_told_and_its_block_is_filled_with_zeros)
{
    captured_output printed;
    expect_success(run(qrx_file{{.original_size = block_bytes + 200},
                                {full_block('a'), {0, m1_run_payload('b', 100)}}}));
    EXPECT_EQ(printed.out(), "Fatal Error in decomp '" + dir / "out" + "'.100,200\n");
    bytes expected(mib, 'a');
    expected.resize(mib + 100, 'b');
    expected.resize(mib + 200);
    EXPECT_TRUE(restored() == expected);
}

TEST_P(decompress_driver, a_source_that_cannot_be_opened_is_told_and_fails)
{
    captured_output printed;
    const driver_run result = decompress(GetParam(), dir / "none", dir / "out");
    EXPECT_EQ(printed.out(), "");
    EXPECT_EQ(printed.err(),
              "can't open input file '" + dir / "none" + "'. 'No such file or directory'\n");
    EXPECT_EQ(result.result, driver_failed);
}

TEST_P(decompress_driver, an_output_that_cannot_be_created_is_told_and_ends_the_run)
{
    write_file(dir / "in", build_qrx(shuffled_file()));
    captured_output printed;
    const driver_run result = decompress(GetParam(), dir / "in", dir / "no/out.qrx");
    EXPECT_EQ(printed.out(), "");
    EXPECT_EQ(printed.err(), "creat error '" + dir / "no/out" + "' 'No such file or directory'\n");
    EXPECT_EQ(result.result, driver_ends_run);
}

TEST_P(decompress_driver, behind_a_failure_of_another_thread_no_output_is_created_or_emptied)
{
    write_file(dir / "in", build_qrx(shuffled_file()));
    write_file(dir / "old", to_bytes("old"));
    pipeline_state state(GetParam());
    state.abort_count = 1;
    EXPECT_EQ(decompress_file(state, dir / "in", dir / "out.qrx"), driver_failed);
    ASSERT_FALSE(file_exists(dir / "out"));
    EXPECT_EQ(decompress_file(state, dir / "in", dir / "old.qrx"), driver_failed);
    EXPECT_EQ(read_file(dir / "old"), to_bytes("old"));
}

TEST(decompress_stopped, a_failure_of_another_thread_is_seen_behind_the_next_record)
{
    const time_guard guard;
    const temp_dir dir;
    write_file(dir / "in", build_qrx(shuffled_file()));
    pipeline_state state(1);
    i32 result = 0;
    const auto driver =
        in_thread([&] { result = decompress_file(state, dir / "in", dir / "out.qrx"); });
    EXPECT_TRUE(still_waits(driver)) << "with its second record";
    state.abort_count = 1;
    EXPECT_EQ(state.jobs.dequeue().block_index, 2U);
    ASSERT_TRUE(comes_to_its_end(driver));
    EXPECT_EQ(result, driver_failed);
    EXPECT_EQ(state.jobs.dequeue().block_index, 0U);
    state.jobs.enqueue(end_of_work());
    EXPECT_EQ(state.jobs.dequeue().out_file, nullptr) << "no third record";
}

/// Two of 2^32 blocks, which a count of 32 bits can't hold.
[[noreturn]] void decompress_two_of_too_many_blocks(u32 workers)
{
    const driver_run run = [&] {
        error_recorder recorder;
        const temp_dir dir;
        const qrx_header header{.original_size = u64{1} << 52};
        write_file(dir / "in", build_qrx({header, {full_block('a'), full_block('b')}}));
        return decompress(workers, dir / "in", dir / "out.qrx");
    }();
    std::fprintf(stderr, "result %d", run.result);
    std::_Exit(0);
}

TEST(decompress_death, more_blocks_than_32_bits_count_are_a_truncated_file)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const u32 workers : {0U, 1U, 3U}) {
        EXPECT_EXIT(decompress_two_of_too_many_blocks(workers), testing::ExitedWithCode(0),
                    "result 0")
            << workers << " workers";
    }
}

} // namespace
} // namespace quarnex::test
