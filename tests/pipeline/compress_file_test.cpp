#include "format/filters.h"
#include "pipeline/compress_driver.h"
#include "pipeline/parameters.h"
#include "plain/plain_filters.h"
#include "support/limited_allocator.h"

#include <cerrno>
#include <filesystem>

namespace quarnex::test {
namespace {

INSTANTIATE_TEST_SUITE_P(, compress_driver, testing::Values(0, 1, 3), workers_name);

TEST_P(compress_driver, an_empty_file_becomes_a_header_and_one_empty_record)
{
    expect_success(run({}));
    EXPECT_EQ(read_file(dir / "out.qrx"),
              (bytes{0, 'Q', 'R', '0', 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 1,
                     0, 12,  0,   0,   0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_P(compress_driver, a_file_of_exactly_n_blocks_has_n_full_records)
{
    const bytes content = find_shape("random").make(2 * mib, 5); // will be stored
    expect_success(run(content));
    const auto payloads = payloads_in_order(compressed());
    ASSERT_TRUE(payloads);
    ASSERT_EQ(payloads->size(), 2U) << "no trailing empty record";
    EXPECT_EQ((*payloads)[0].size(), mib);
    EXPECT_EQ((*payloads)[1].size(), mib);
    EXPECT_EQ(compressed().header.original_size, 2 * mib);
}

TEST_P(compress_driver, one_byte_more_than_n_blocks_gets_its_own_record)
{
    expect_success(run(find_shape("random").make(mib + 1, 5)));
    const auto payloads = payloads_in_order(compressed());
    ASSERT_TRUE(payloads);
    ASSERT_EQ(payloads->size(), 2U);
    EXPECT_EQ((*payloads)[1].size(), 1U);
}

TEST_P(compress_driver, a_file_smaller_than_a_block_has_one_record_and_the_configured_block_size)
{
    file_parameters parameters = quick_parameters;
    parameters.block_mb = 32;
    expect_success(run(bytes(1000), parameters));
    EXPECT_EQ(compressed().records.size(), 1U);
    EXPECT_EQ(compressed().header.block_mb, 32);
    EXPECT_EQ(compressed().header.original_size, 1000U);
}

TEST_P(compress_driver, an_incompressible_block_has_a_size_equal_to_its_length)
{
    const bytes content = find_shape("random").make(5000, 5);
    expect_success(run(content));
    ASSERT_EQ(compressed().records.size(), 1U);
    EXPECT_EQ(compressed().records[0].payload, content);
}

TEST_P(compress_driver, the_header_holds_the_values_of_the_level)
{
    file_parameters parameters{.codec = {.method = 1, .level = 2, .lit_ctx_bits = 3}};
    settle_parameters(parameters, level_defaults());
    expect_success(run(bytes(10), parameters));
    const qrx_header expected{.original_size = 10,
                              .method = 1,
                              .level = 2,
                              .lit_ctx_bits = 3,
                              .block_mb = 32,
                              .hash_bits = 18,
                              .chain_bits = 1};
    EXPECT_EQ(compressed().header, expected);
}

/// Runs the driver with classification of the source.
class compress_classified : public compress_driver {
  protected:
    void run_classified(const bytes& content, const std::string& name, u16 block_mb = 1)
    {
        write_file(dir / name, content);
        file_parameters parameters = quick_parameters;
        parameters.block_mb = block_mb;
        const std::string source = dir / name;
        const std::string out = dir / "out.qrx";
        expect_success(run_driver(GetParam(), recorder, [&](engine& work) {
            return compress_file(work, {source.c_str(), out.c_str()}, parameters);
        }));
    }
};

INSTANTIATE_TEST_SUITE_P(, compress_classified, testing::Values(0, 1, 3), workers_name);

TEST_P(compress_classified, only_the_first_mib_is_classified)
{
    for (const u16 block_mb : {u16{1}, u16{2}, u16{4}}) {
        bytes content(2 * mib + 5, 'a'); // ASCII
        content[mib] = 0;
        run_classified(content, "text", block_mb);
        const u8 of_text = compressed().header.lit_ctx_bits;
        EXPECT_EQ(of_text, 8) << block_mb;
        content[mib - 1] = 0;
        run_classified(content, "none", block_mb);
        EXPECT_NE(compressed().header.lit_ctx_bits, of_text) << block_mb;
    }
}

TEST_P(compress_classified, the_extension_decides_where_the_content_does_not)
{
    const bytes content = find_shape("random").make(1000, 6);
    run_classified(content, "in.exe");
    EXPECT_EQ(compressed().header.filter_flags, filter_x86);
    run_classified(content, "in.unknown");
    EXPECT_EQ(compressed().header.filter_flags, 0);
}

TEST_P(compress_classified, an_incompressible_block_is_stored_filtered)
{
    const bytes content = find_shape("random").make(5 * mib / 2, 6);
    run_classified(content, "in.exe");
    const auto payloads = payloads_in_order(compressed());
    ASSERT_TRUE(payloads);
    ASSERT_EQ(payloads->size(), 3U);
    for (usize i = 0; i < 3; ++i) { // filter state starts anew in each block
        const auto begin = content.begin() + static_cast<std::ptrdiff_t>(i * mib);
        const bytes block(begin, i < 2 ? begin + mib : content.end());
        EXPECT_TRUE(payloads->at(i) == plain_x86_filter(block, true)) << i;
        EXPECT_FALSE(payloads->at(i) == block) << i;
    }
}

TEST_P(compress_driver, without_classification_the_given_filter_is_applied)
{
    file_parameters parameters = quick_parameters;
    parameters.filter_flags = filter_delta;
    expect_success(run({1, 2, 3, 4, 4, 4}, parameters));
    EXPECT_EQ(compressed().header.filter_flags, filter_delta);
    ASSERT_EQ(compressed().records.size(), 1U);
    EXPECT_EQ(compressed().records[0].payload, (bytes{1, 2, 3, 3, 2, 1}));
}

TEST_P(compress_driver, an_existing_destination_is_overwritten)
{
    write_file(dir / "out.qrx", bytes(1000, 'o'));
    expect_success(run({'x'}));
    EXPECT_EQ(read_file(dir / "out.qrx").size(), 32U + 5 + 1);
}

TEST_P(compress_driver, no_file_stays_open)
{
    const usize before = open_descriptors();
    expect_success(run(bytes(3 * mib)));
    EXPECT_EQ(open_descriptors(), before);
}

TEST_P(compress_driver, a_source_that_cannot_be_opened_is_reported_and_fails)
{
    expect_no_source(dir / "none", ENOENT);
}

TEST_P(compress_driver, a_destination_that_cannot_be_created_is_reported_and_fails)
{
    write_file(dir / "in", {});
    const driver_run result =
        compress(GetParam(), recorder, quick_parameters, dir / "in", dir / "no/out.qrx");
    const recorded_event reported = expect_driver_failure(result, event_kind::destination_uncreated,
                                                          status::destination_uncreated);
    EXPECT_EQ(reported.name, dir / "no/out.qrx");
    EXPECT_EQ(reported.cause, ENOENT);
}

TEST_P(compress_driver, an_encoder_without_memory_is_reported_and_fails_its_file)
{
    limited_allocator memory;
    memory.refuse_from(usize{1} << 31);
    write_file(dir / "in", bytes(5 * mib));
    const driver_run result = compress(GetParam(), recorder, failing_parameters, dir / "in",
                                       dir / "out.qrx", memory.get());
    EXPECT_EQ(result.first_failure, status::no_memory);
    const auto reported = recorder.take();
    for (const recorded_event& each : reported) {
        EXPECT_EQ(each.kind, event_kind::block_uncoded);
        EXPECT_EQ(each.codec_error, codec_status::no_table);
        EXPECT_EQ(each.on_worker, has_workers());
        EXPECT_EQ(each.name, dir / "in");
    }
    if (!has_workers()) {
        EXPECT_EQ(reported.size(), 1U);
        EXPECT_EQ(result.result, status::no_memory);
        return;
    }
    // Each worker may already hold a block of the file when the first one fails.
    EXPECT_EQ(reported.size(), result.thread_failures);
    EXPECT_GE(result.thread_failures, 1U);
    EXPECT_LE(result.thread_failures, GetParam());
    EXPECT_EQ(result.result, status::done) << "the driver ignores failures of other threads";
    EXPECT_EQ(read_file(dir / "out.qrx").size(), 32U) << "only the header";
}

TEST_P(compress_driver, missing_memory_for_the_block_or_its_record_is_reported)
{
    for (const usize refused : {2 * mib, 2 * mib + 4200}) { // slacks of 4097 and 4101 bytes
        limited_allocator memory;
        memory.refuse_from(refused);
        write_file(dir / "in", find_shape("random").make(2 * mib, 1));
        file_parameters parameters = quick_parameters;
        parameters.block_mb = 2;
        const driver_run result =
            compress(GetParam(), recorder, parameters, dir / "in", dir / "out.qrx", memory.get());
        EXPECT_EQ(result.first_failure, refused == 2 * mib ? status::no_memory : status::done);
        EXPECT_EQ(recorder.take().size(), refused == 2 * mib ? 1U : 0U);
        EXPECT_EQ(memory.in_use(), 0U);
    }
}

/// An observer::advance that cancels at the first call.
bool cancel(void* context, u64 done, u64 total)
{
    *static_cast<std::pair<u64, u64>*>(context) = {done, total};
    return false;
}

TEST_P(compress_driver, an_observer_can_cancel_a_file)
{
    write_file(dir / "in", bytes(5 * mib));
    std::pair<u64, u64> seen;
    engine work(system_allocator, GetParam(), {.advance = cancel, .context = &seen});
    const engine_threads threads(work);
    const std::string source = dir / "in";
    const std::string out = dir / "out.qrx";
    EXPECT_EQ(compress_file(work, {source.c_str(), out.c_str()}, quick_parameters),
              status::cancelled);
    EXPECT_EQ(seen, (std::pair<u64, u64>{mib, 5 * mib}));
    EXPECT_EQ(work.first_failure(), status::cancelled);
}

/// Runs the driver on a thread.  The test dequeues its blocks, so that it can change the source in
/// between.
class compress_moving_source : public testing::Test {
  protected:
    void start(usize size)
    {
        write_file(dir / "in", bytes(size, 's'));
        driver = in_thread([this] { result = run(quick_parameters); });
    }

    status run(const file_parameters& parameters)
    {
        const std::string source = dir / "in";
        const std::string out = dir / "out.qrx";
        return compress_file(work, {source.c_str(), out.c_str()}, parameters, false);
    }

    const time_guard guard;
    temp_dir dir;
    event_recorder recorder;
    engine work{system_allocator, 1, recorder.watcher()};
    status result = status::done;
    std::future<void> driver;
};

TEST_F(compress_moving_source, a_shrunken_source_ends_at_the_first_short_read_and_is_reported)
{
    start(4 * mib);
    // The driver has queued block 0 and waits to queue block 1.
    EXPECT_TRUE(still_waits(driver));
    std::filesystem::resize_file(dir / "in", 2 * mib + 1000);
    EXPECT_EQ(work.jobs.dequeue().codec.in_len, mib);
    EXPECT_EQ(work.jobs.dequeue().codec.in_len, mib);
    const block_job last = work.jobs.dequeue();
    ASSERT_TRUE(finishes(driver));

    EXPECT_EQ(last.codec.in_len, 1000U);
    const bytes slack(last.codec.in_buf + 1000, last.codec.in_buf + 1000 + in_slack);
    EXPECT_EQ(slack, bytes(in_slack));
    EXPECT_EQ(result, status::done);
    const auto reported = recorder.take();
    ASSERT_EQ(reported.size(), 1U);
    EXPECT_EQ(reported[0].kind, event_kind::source_shrank);
    EXPECT_EQ(reported[0].name, dir / "in");
    EXPECT_EQ(parse_qrx(read_file(dir / "out.qrx"))->header.original_size, 4 * mib);
}

TEST_F(compress_moving_source, the_slack_of_a_filtered_block_is_zero)
{
    file_parameters parameters = quick_parameters;
    parameters.filter_flags = filter_x86;
    constexpr usize size = max_small_file + 1; // workers read smaller files
    write_file(dir / "in", bytes(size, 0xE8));
    EXPECT_EQ(run(parameters), status::done);
    const block_job job = work.jobs.dequeue();
    ASSERT_EQ(job.codec.in_len, size);
    EXPECT_EQ(bytes(job.codec.in_buf + size, job.codec.in_buf + size + in_slack), bytes(in_slack));
    EXPECT_EQ(job.filter_flags, filter_x86);
}

TEST_F(compress_moving_source, a_source_that_shrinks_to_a_block_boundary_ends_with_an_empty_block)
{
    start(4 * mib);
    EXPECT_TRUE(still_waits(driver));
    std::filesystem::resize_file(dir / "in", 2 * mib);
    work.jobs.dequeue();
    work.jobs.dequeue();
    EXPECT_EQ(work.jobs.dequeue().codec.in_len, 0U);
    ASSERT_TRUE(finishes(driver));
    EXPECT_EQ(result, status::done);
}

TEST_F(compress_moving_source, a_growing_source_is_cut_at_its_initial_size)
{
    start(mib + 1000);
    EXPECT_EQ(work.jobs.dequeue().codec.in_len, mib); // the size was read before
    std::filesystem::resize_file(dir / "in", 3 * mib);
    EXPECT_EQ(work.jobs.dequeue().codec.in_len, 1000U);
    ASSERT_TRUE(finishes(driver));
    EXPECT_EQ(result, status::done);
    EXPECT_TRUE(recorder.take().empty());
}

TEST_F(compress_moving_source, no_block_is_submitted_more_than_120_ahead_of_an_unwritten_one)
{
    start(130 * mib);
    const auto finish = [&](const block_job& job) {
        work.mark_done(job.out_file, job.block_index, job.mode);
    };
    const block_job first = work.jobs.dequeue();
    for (u32 index = 1; index <= displacement_window::max_lead; ++index) {
        const block_job job = work.jobs.dequeue();
        ASSERT_EQ(job.block_index, index);
        finish(job);
    }
    EXPECT_TRUE(still_waits(driver));
    finish(first);
    for (u32 index = displacement_window::max_lead + 1; index < 130; ++index) {
        const block_job job = work.jobs.dequeue();
        ASSERT_EQ(job.block_index, index);
        finish(job);
    }
    EXPECT_TRUE(finishes(driver));
}

TEST_F(compress_moving_source, no_block_is_read_while_the_maximum_number_of_blocks_is_in_memory)
{
    start(8 * mib);
    const block_job first = work.jobs.dequeue();
    const block_job second = work.jobs.dequeue();
    const block_job third = work.jobs.dequeue();
    EXPECT_EQ(max_blocks(1), 3U);
    EXPECT_TRUE(still_waits(driver));
    EXPECT_EQ(work.buffers.idle(), 0U);
    for (u32 index = 3; index < 8; ++index) {
        // Later blocks don't have to wait for the first.
        work.mark_done(second.out_file, index - 2, direction::compress);
        EXPECT_EQ(work.jobs.dequeue().block_index, index);
    }
    EXPECT_TRUE(finishes(driver));
}

} // namespace
} // namespace quarnex::test
