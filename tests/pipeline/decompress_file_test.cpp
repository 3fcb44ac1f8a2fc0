#include "pipeline/decompress_driver.h"
#include "support/limited_allocator.h"

#include <cerrno>

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

TEST_P(decompress_driver, records_in_any_order_are_written_at_their_offsets)
{
    expect_success(run(shuffled_file()));
    EXPECT_TRUE(restored() == shuffled_content());
}

TEST_P(decompress_driver, no_file_stays_open)
{
    const usize before = open_descriptors();
    expect_success(run(shuffled_file()));
    EXPECT_EQ(open_descriptors(), before);
}

TEST_P(decompress_driver, a_file_of_exactly_n_blocks_ends_with_a_full_block)
{
    expect_success(
        run(qrx_file{{.original_size = 2 * block_bytes}, {full_block('a'), full_block('b')}}));
    EXPECT_EQ(restored().size(), 2 * mib);
}

TEST_P(decompress_driver, the_empty_record_of_an_empty_file_is_stored_and_writes_nothing)
{
    expect_success(run(qrx_file{{}, {{0, {}}}}));
    EXPECT_TRUE(file_exists(dir / "out"));
    EXPECT_EQ(restored(), bytes());
}

TEST_P(decompress_driver, a_stored_block_is_copied_even_if_its_method_does_not_exist)
{
    const bytes content = find_shape("random").make(1000, 4);
    expect_success(run(qrx_file{{.original_size = 1000, .method = 200}, {{0, content}}}));
    EXPECT_EQ(restored(), content);
}

TEST_P(decompress_driver, the_filter_is_undone_from_the_start_of_each_stored_or_coded_block)
{
    bytes stored(block_bytes); // all differences are 0 except in the first group
    stored[0] = 7;
    const qrx_file file{{.original_size = 2 * block_bytes + 72, .filter_flags = 0xF2},
                        {{displacement_of(2), m1_run_payload(1, 72)},
                         {displacement_of(-1), stored},
                         {displacement_of(-1), m1_run_payload(0, block_bytes)}}};
    bytes expected;
    while (expected.size() < block_bytes - 1) expected.insert(expected.end(), {7, 0, 0});
    expected.resize(2 * block_bytes); // 2^20 = 3 x 349525 + 1: a block's last byte is in no group
    for (u8 value = 1; value <= 24; ++value) expected.insert(expected.end(), 3, value);
    expect_success(run(file));
    EXPECT_TRUE(restored() == expected);
}

TEST_P(decompress_driver, unknown_filter_flags_are_ignored)
{
    for (const u8 flags : bytes{0, 3, 4, 15, 0xF0}) {
        expect_success(run(
            qrx_file{{.original_size = 6, .filter_flags = flags}, {{0, {0xE8, 1, 0, 0, 0, 2}}}}));
        EXPECT_EQ(restored(), (bytes{0xE8, 1, 0, 0, 0, 2})) << int{flags};
    }
}

TEST_P(decompress_driver, a_source_that_ends_within_a_record_head_gives_a_short_output_silently)
{
    const bytes whole = build_qrx({{.original_size = 200}, {{0, m1_run_payload('a', 100)}}});
    for (usize cut = 0; cut < 5; ++cut) {
        const auto end = whole.begin() + static_cast<std::ptrdiff_t>(32 + cut);
        expect_success(run(bytes(whole.begin(), end)));
        EXPECT_EQ(restored(), bytes());
    }
}

TEST_P(decompress_driver, a_source_that_ends_after_a_record_gives_a_short_output_silently)
{
    expect_success(
        run(qrx_file{{.original_size = 3 * block_bytes}, {full_block('a'), full_block('b')}}));
    EXPECT_EQ(restored().size(), 2 * mib);
}

TEST_P(decompress_driver, a_source_that_ends_within_a_payload_is_reported_and_fails)
{
    const bytes payload = m1_run_payload('a', 100);
    bytes image = build_qrx({{.original_size = 100}, {{0, payload}}});
    image.pop_back();
    const recorded_event reported =
        expect_driver_failure(run(image), event_kind::payload_short, status::truncated);
    EXPECT_EQ(reported.name, dir / "in");
    EXPECT_EQ(reported.cause, 0);
    EXPECT_EQ(reported.wanted, payload.size());
    EXPECT_EQ(reported.got, payload.size() - 1);
}

TEST_P(decompress_driver, a_truncated_header_is_reported_and_creates_nothing)
{
    for (const usize size : {0U, 1U, 31U}) {
        const recorded_event reported =
            expect_driver_failure(run(bytes(size)), event_kind::header_short, status::truncated);
        EXPECT_EQ(reported.cause, 0);
        EXPECT_FALSE(file_exists(dir / "out"));
    }
}

TEST_P(decompress_driver, a_file_without_the_magic_letters_is_reported_and_creates_nothing)
{
    const recorded_event reported =
        expect_driver_failure(run(bytes(100, 'x')), event_kind::not_qrx, status::not_qrx);
    EXPECT_EQ(reported.name, dir / "in");
    EXPECT_FALSE(file_exists(dir / "out"));
}

TEST_P(decompress_driver, the_byte_before_the_magic_letters_is_ignored)
{
    bytes image = build_qrx({{.original_size = 1}, {{0, {'x'}}}});
    image[0] = 0xFF;
    expect_success(run(image));
    EXPECT_EQ(restored(), bytes{'x'});
}

TEST_P(decompress_driver, a_header_with_impossible_values_is_corrupt)
{
    expect_damage(run(qrx_file{{.original_size = 1, .level = 10}, {{0, {'x'}}}}));
    expect_damage(run(qrx_file{{.original_size = 1, .level = 255}, {{0, {'x'}}}}));
    expect_damage(run(qrx_file{{.original_size = 1, .block_mb = 0}, {{0, {'x'}}}}));
}

TEST_P(decompress_driver, a_coded_block_of_an_unknown_method_is_corrupt)
{
    for (const u8 method : bytes{0, 6, 7, 8, 255}) {
        const qrx_header header{.original_size = 100, .method = method};
        expect_damage(run(qrx_file{header, {{0, m1_run_payload('a', 100)}}}));
    }
}

TEST_P(decompress_driver, a_payload_larger_than_its_block_is_corrupt)
{
    expect_damage(run(qrx_file{{.original_size = 10}, {{0, bytes(11)}}}));
    expect_damage(run(qrx_file{{}, {{0, bytes(1)}}}));
}

TEST_P(decompress_driver, a_payload_size_near_or_above_2_gib_is_corrupt)
{
    for (const u8 top : bytes{0x7F, 0x80, 0xFF}) {
        bytes image = build_qrx({{.original_size = ~u64{0}, .block_mb = 0xFFFF}, {}});
        image.insert(image.end(), {0xFF, 0xFF, 0xFF, top, 0});
        expect_damage(run(image));
    }
}

TEST_P(decompress_driver, a_block_index_outside_the_file_is_corrupt)
{
    for (const i32 distance : {-1, 2, 127}) {
        const qrx_header header{.original_size = 2 * block_bytes};
        expect_damage(run(qrx_file{header, {full_block('a', distance)}}));
    }
    expect_damage(run(qrx_file{{}, {{displacement_of(1), {}}}}));
}

TEST_P(decompress_driver, more_records_than_blocks_are_corrupt)
{
    const qrx_header header{.original_size = block_bytes};
    expect_damage(run(qrx_file{header, {full_block('a'), full_block('a', -1)}}));
    if (!has_workers()) {
        EXPECT_TRUE(restored() == bytes(mib, 'a'));
    } // with workers the blocks in flight are dropped
}

TEST_P(decompress_driver, a_block_decoded_short_is_reported_and_padded_with_zeros)
{
    const driver_run result = run(qrx_file{{.original_size = block_bytes + 200},
                                           {full_block('a'), {0, m1_run_payload('b', 100)}}});
    EXPECT_EQ(result.result, status::done);
    EXPECT_EQ(result.first_failure, status::done);
    const recorded_event reported = expect_event(event_kind::block_short);
    EXPECT_EQ(reported.name, dir / "out");
    EXPECT_EQ(reported.block, 1U);
    EXPECT_EQ(reported.wanted, 200U);
    EXPECT_EQ(reported.got, 100U);
    bytes expected(mib, 'a');
    expected.resize(mib + 100, 'b');
    expected.resize(mib + 200);
    EXPECT_TRUE(restored() == expected);
}

TEST_P(decompress_driver, a_source_that_cannot_be_opened_is_reported_and_fails)
{
    const recorded_event reported =
        expect_driver_failure(decompress(GetParam(), recorder, dir / "none", dir / "out"),
                              event_kind::source_unopened, status::source_unopened);
    EXPECT_EQ(reported.name, dir / "none");
    EXPECT_EQ(reported.cause, ENOENT);
    EXPECT_EQ(reported.mode, direction::decompress);
}

TEST_P(decompress_driver, a_destination_that_cannot_be_created_is_reported_and_fails)
{
    write_file(dir / "in", build_qrx(shuffled_file()));
    const recorded_event reported =
        expect_driver_failure(decompress(GetParam(), recorder, dir / "in", dir / "no/out"),
                              event_kind::destination_uncreated, status::destination_uncreated);
    EXPECT_EQ(reported.name, dir / "no/out");
    EXPECT_EQ(reported.cause, ENOENT);
}

TEST_P(decompress_driver, missing_memory_for_a_payload_or_a_block_is_reported)
{
    const bytes content = find_shape("random").make(block_bytes, 1);
    write_file(dir / "stored", build_qrx({{.original_size = block_bytes}, {{0, content}}}));
    write_file(dir / "coded", build_qrx({{.original_size = block_bytes}, {full_block('a')}}));
    limited_allocator memory;
    memory.refuse_from(block_bytes);
    expect_driver_failure(
        decompress(GetParam(), recorder, dir / "stored", dir / "out", memory.get()),
        event_kind::no_memory, status::no_memory);
    expect_failure(decompress(GetParam(), recorder, dir / "coded", dir / "out", memory.get()),
                   event_kind::no_memory, status::no_memory);
    EXPECT_EQ(memory.in_use(), 0U);
}

TEST_P(decompress_driver, missing_memory_for_models_is_reported)
{
    write_file(dir / "in", build_qrx({{.original_size = 1000, .method = 5}, {{0, bytes(10)}}}));
    limited_allocator memory;
    memory.refuse_from(sizeof(u64) * 1024); // refuses only the models, the largest allocation
    const recorded_event reported =
        expect_failure(decompress(GetParam(), recorder, dir / "in", dir / "out", memory.get()),
                       event_kind::block_uncoded, status::no_memory);
    EXPECT_EQ(reported.codec_error, codec_status::no_state);
    EXPECT_EQ(reported.name, dir / "in");
}

TEST_P(decompress_driver, after_a_thread_failure_no_destination_is_created_or_truncated)
{
    write_file(dir / "in", build_qrx(shuffled_file()));
    write_file(dir / "old", bytes_of("old"));
    engine work(system_allocator, GetParam(), recorder.watcher());
    const output_ref other = create_output(dir / "other");
    work.fail_on_thread(*other, status::write_failed);
    const std::string source = dir / "in";
    const std::string out = dir / "out";
    const std::string old = dir / "old";
    EXPECT_EQ(decompress_file(work, {source.c_str(), out.c_str()}), status::stopped);
    ASSERT_FALSE(file_exists(dir / "out"));
    EXPECT_EQ(decompress_file(work, {source.c_str(), old.c_str()}), status::stopped);
    EXPECT_EQ(read_file(dir / "old"), bytes_of("old"));
}

TEST(decompress_stopped, a_thread_failure_stops_the_driver_after_the_next_record)
{
    const time_guard guard;
    const temp_dir dir;
    write_file(dir / "in", build_qrx(shuffled_file()));
    engine work(system_allocator, 1, {});
    status result = status::done;
    const std::string source = dir / "in";
    const std::string out = dir / "out";
    const auto driver = in_thread([&] {
        result = decompress_file(work, {source.c_str(), out.c_str()});
    });
    EXPECT_TRUE(still_waits(driver)) << "to submit its second record";
    const output_ref other = create_output(dir / "other");
    work.fail_on_thread(*other, status::write_failed);
    EXPECT_EQ(work.jobs.dequeue().block_index, 2U);
    ASSERT_TRUE(finishes(driver));
    EXPECT_EQ(result, status::stopped);
    EXPECT_EQ(work.jobs.dequeue().block_index, 0U);
    work.jobs.enqueue(end_of_work());
    EXPECT_FALSE(work.jobs.dequeue().out_file) << "no third record";
}

TEST_P(decompress_driver, a_file_of_2_to_the_32_blocks_without_records_is_truncated)
{
    const qrx_header header{.original_size = u64{1} << 52}; // 2^32 blocks
    expect_success(run(qrx_file{header, {full_block('a'), full_block('b')}}));
    EXPECT_EQ(restored().size(), 2 * mib);
}

} // namespace
} // namespace quarnex::test
