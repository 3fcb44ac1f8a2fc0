#include "format/filters.h"
#include "pipeline/compress_driver.h"
#include "plain/plain_filters.h"
#include "support/captured_output.h"

#include <filesystem>

namespace quarnex::test {
namespace {

INSTANTIATE_TEST_SUITE_P(, compress_driver, testing::Values(0, 1, 3), workers_name);

TEST_P(compress_driver, an_empty_file_gives_a_header_and_one_empty_record)
{
    expect_success(run({}));
    EXPECT_EQ(read_file(dir / "out.qrx"),
              (bytes{0, 'Q', 'R', '0', 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 1,
                     0, 12,  0,   0,   0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_P(compress_driver, a_file_of_exactly_n_blocks_has_n_records_the_last_of_full_length)
{
    const bytes content = find_shape("random").make(2 * mib, 5); // stored: lengths can be seen
    expect_success(run(content));
    const auto payloads = payloads_in_order(compressed());
    ASSERT_TRUE(payloads);
    ASSERT_EQ(payloads->size(), 2U) << "no empty record behind";
    EXPECT_EQ((*payloads)[0].size(), mib);
    EXPECT_EQ((*payloads)[1].size(), mib);
    EXPECT_EQ(compressed().header.original_size, 2 * mib);
}

TEST_P(compress_driver, a_byte_more_than_n_blocks_has_a_record_of_its_own)
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

TEST_P(compress_driver, a_block_that_cannot_be_compressed_has_a_size_equal_to_its_length)
{
    const bytes content = find_shape("random").make(5000, 5);
    expect_success(run(content));
    ASSERT_EQ(compressed().records.size(), 1U);
    EXPECT_EQ(compressed().records[0].payload, content);
}

TEST_P(compress_driver, the_header_holds_the_values_of_the_level)
{
    expect_success(run(bytes(10), {.method = 1, .level = 2, .lit_ctx_bits = 3}));
    const qrx_header expected{.original_size = 10,
                              .method = 1,
                              .level = 2,
                              .lit_ctx_bits = 3,
                              .block_mb = 32,
                              .hash_bits = 18,
                              .chain_bits = 1};
    EXPECT_EQ(compressed().header, expected);
}

/// What a classifier was asked, and what it answers.
struct classifier_call {
    bytes sample;
    std::string name;
};
std::vector<classifier_call> classifier_calls;
u8 answered_filter = 0;

void answer(std::span<const u8> sample, std::string_view name, file_parameters& parameters)
{
    classifier_calls.push_back({bytes(sample.begin(), sample.end()), std::string(name)});
    parameters.lit_ctx_bits = 5;
    parameters.filter_flags = answered_filter;
}

class compress_classified : public compress_driver {
  protected:
    void run_classified(const bytes& content, u8 filter, u16 block_mb = 1)
    {
        classifier_calls.clear();
        answered_filter = filter;
        write_file(dir / "in", content);
        expect_success(run_driver(GetParam(), direction::compress, [&](pipeline_state& state) {
            state.classify = answer;
            file_parameters parameters = quick_parameters;
            parameters.block_mb = block_mb;
            return compress_file(state, parameters, dir / "in", dir / "out");
        }));
    }
};

INSTANTIATE_TEST_SUITE_P(, compress_classified, testing::Values(0, 1, 3), workers_name);

TEST_P(compress_classified, the_classifier_sees_the_first_mib_and_the_source_name_once)
{
    const bytes content = find_shape("random").make(2 * mib + 5, 6);
    for (const u16 block_mb : {u16{1}, u16{2}, u16{4}}) {
        run_classified(content, 0, block_mb);
        ASSERT_EQ(classifier_calls.size(), 1U);
        EXPECT_TRUE(classifier_calls[0].sample == bytes(content.begin(), content.begin() + mib));
        EXPECT_EQ(classifier_calls[0].name, dir / "in");
    }
}

TEST_P(compress_classified, the_classifier_sees_all_of_a_smaller_file)
{
    for (const usize size : {usize{0}, usize{1}, mib - 1}) {
        const bytes content = find_shape("random").make(size, 6);
        run_classified(content, filter_x86);
        ASSERT_EQ(classifier_calls.size(), 1U);
        EXPECT_TRUE(classifier_calls[0].sample == content) << "before any filter";
    }
}

TEST_P(compress_classified, its_answer_is_in_the_header)
{
    run_classified(bytes(10), filter_delta);
    EXPECT_EQ(compressed().header.lit_ctx_bits, 5);
    EXPECT_EQ(compressed().header.filter_flags, filter_delta);
}

TEST_P(compress_classified, a_block_that_cannot_be_compressed_holds_the_filtered_block)
{
    const bytes content = find_shape("random").make(5 * mib / 2, 6);
    for (const u8 filter : {filter_x86, filter_delta}) {
        run_classified(content, filter);
        const auto payloads = payloads_in_order(compressed());
        ASSERT_TRUE(payloads);
        ASSERT_EQ(payloads->size(), 3U);
        for (usize i = 0; i < 3; ++i) { // with fresh state in each
            const auto from = content.begin() + static_cast<std::ptrdiff_t>(i * mib);
            const bytes block(from, i < 2 ? from + mib : content.end());
            const auto plain = filter == filter_x86 ? plain_x86_filter : plain_delta_filter;
            EXPECT_TRUE(payloads->at(i) == plain(block, true)) << i;
            EXPECT_FALSE(payloads->at(i) == block) << i;
        }
    }
}

TEST_P(compress_classified, without_a_classifier_the_filter_of_the_template_is_applied)
{
    file_parameters parameters = quick_parameters;
    parameters.filter_flags = filter_delta;
    expect_success(run({1, 2, 3, 4, 4, 4}, parameters));
    EXPECT_EQ(compressed().header.filter_flags, filter_delta);
    ASSERT_EQ(compressed().records.size(), 1U);
    EXPECT_EQ(compressed().records[0].payload, (bytes{1, 2, 3, 3, 2, 1}));
}

TEST_P(compress_driver, a_name_that_ends_in_the_suffix_in_capitals_is_skipped_without_a_word)
{
    for (const char* const name : {"in.QRX", "in.qrx", "in.qRx"}) {
        write_file(dir / name, bytes(10));
        captured_output printed;
        expect_success(compress(GetParam(), quick_parameters, dir / name, dir / "out"));
        EXPECT_EQ(printed.out() + printed.err(), "");
        EXPECT_FALSE(file_exists(dir / "out.qrx"));
    }
}

TEST_P(compress_driver, an_existing_destination_is_overwritten_without_a_word)
{
    write_file(dir / "out.qrx", bytes(1000, 'o'));
    captured_output printed;
    expect_success(run({'x'}));
    EXPECT_EQ(printed.out() + printed.err(), "");
    EXPECT_EQ(read_file(dir / "out.qrx").size(), 32U + 5 + 1);
}

TEST_P(compress_driver, nothing_stays_open)
{
    const usize before = open_descriptors();
    expect_success(run(bytes(3 * mib)));
    EXPECT_EQ(open_descriptors(), before);
}

TEST_P(compress_driver, a_source_that_cannot_be_opened_is_told_and_fails)
{
    expect_no_source(dir / "none", "No such file or directory");
}

TEST_P(compress_driver, a_destination_that_cannot_be_created_is_told_and_ends_the_run)
{
    write_file(dir / "in", {});
    captured_output printed;
    const driver_run result = compress(GetParam(), quick_parameters, dir / "in", dir / "no/out");
    EXPECT_EQ(printed.out(), "");
    EXPECT_EQ(printed.err(),
              "creat error '" + dir / "no/out.qrx" + "' 'No such file or directory'\n");
    EXPECT_EQ(result.result, driver_ends_run);
}

TEST_P(compress_driver, an_encoder_that_fails_is_told)
{
    captured_output printed;
    const driver_run result = run(bytes(5 * mib), failing_parameters);
    if (!has_workers()) {
        EXPECT_EQ(printed.out(), "compression error\n");
        EXPECT_EQ(result.result, driver_failed);
        return;
    }
    // Each worker that gets a block fails once.
    std::string expected;
    for (i32 i = 0; i < result.abort_count; ++i) expected += "error compressing\n";
    EXPECT_EQ(printed.out(), expected);
    EXPECT_GE(result.abort_count, 1);
    EXPECT_LE(result.abort_count, static_cast<i32>(GetParam()));
    EXPECT_EQ(result.result, driver_done) << "the driver doesn't look at the workers";
    EXPECT_EQ(read_file(dir / "out.qrx").size(), 32U) << "the header alone";
}

/// A driver whose blocks the test takes, so that it can change the file behind the driver's back.
class compress_moving_source : public testing::Test {
  protected:
    void start(usize size)
    {
        write_file(dir / "in", bytes(size, 's'));
        driver = in_thread(
            [this] { result = compress_file(state, quick_parameters, dir / "in", dir / "out"); });
    }

    const time_guard guard;
    temp_dir dir;
    pipeline_state state{1};
    i32 result = 0;
    std::future<void> driver;
};

TEST_F(compress_moving_source, a_shrunken_source_ends_at_the_first_short_read_and_is_told)
{
    captured_output printed;
    start(4 * mib);
    // Behind block 0, which it hands on, the driver waits with block 1.
    EXPECT_TRUE(still_waits(driver));
    std::filesystem::resize_file(dir / "in", 2 * mib + 1000);
    EXPECT_EQ(state.jobs.dequeue().in_len, mib);
    EXPECT_EQ(state.jobs.dequeue().in_len, mib);
    const block_job last = state.jobs.dequeue();
    ASSERT_TRUE(comes_to_its_end(driver));

    EXPECT_EQ(last.in_len, 1000U);
    const bytes slack(last.in_buf + 1000, last.in_buf + 1000 + in_slack);
    EXPECT_EQ(slack, bytes(in_slack));
    EXPECT_EQ(result, driver_done);
    EXPECT_EQ(printed.err(), "input file '" + dir / "in" + "' has become shorter\n");
    EXPECT_EQ(take_qrx_apart(read_file(dir / "out.qrx"))->header.original_size, 4 * mib);
}

TEST_F(compress_moving_source, the_slack_of_a_filtered_block_is_zero)
{
    file_parameters parameters = quick_parameters;
    parameters.filter_flags = filter_x86;
    write_file(dir / "in", bytes(1000, 0xE8));
    EXPECT_EQ(compress_file(state, parameters, dir / "in", dir / "out"), driver_done);
    const block_job job = state.jobs.dequeue();
    ASSERT_EQ(job.in_len, 1000U);
    EXPECT_EQ(bytes(job.in_buf + 1000, job.in_buf + 1000 + in_slack), bytes(in_slack));
    EXPECT_EQ(job.parameters.filter_flags, filter_x86);
}

TEST_F(compress_moving_source, a_source_that_shrinks_to_a_block_boundary_ends_with_an_empty_block)
{
    captured_output printed;
    start(4 * mib);
    EXPECT_TRUE(still_waits(driver));
    std::filesystem::resize_file(dir / "in", 2 * mib);
    state.jobs.dequeue();
    state.jobs.dequeue();
    EXPECT_EQ(state.jobs.dequeue().in_len, 0U);
    ASSERT_TRUE(comes_to_its_end(driver));
    EXPECT_EQ(result, driver_done);
}

TEST_F(compress_moving_source, a_source_that_grows_is_cut_at_the_size_it_had)
{
    captured_output printed;
    start(mib + 1000);
    EXPECT_EQ(state.jobs.dequeue().in_len, mib); // the size has been taken
    std::filesystem::resize_file(dir / "in", 3 * mib);
    EXPECT_EQ(state.jobs.dequeue().in_len, 1000U);
    ASSERT_TRUE(comes_to_its_end(driver));
    EXPECT_EQ(result, driver_done);
    EXPECT_EQ(printed.err(), "");
}

TEST_F(compress_moving_source, no_block_enters_more_than_120_before_an_unwritten_one)
{
    start(130 * mib);
    std::vector<block_job> taken; // none of them gets written
    for (u32 index = 0; index <= displacement_window::reach; ++index) {
        taken.push_back(state.jobs.dequeue());
        ASSERT_EQ(taken.back().block_index, index);
        taken.back().in_alloc.reset();
    }
    EXPECT_TRUE(still_waits(driver));
    const auto window_user = taken[0].out_file;
    for (u32 index = 0; index < 130; ++index) {
        window_user->window.settle(index);
        if (index + 1 + displacement_window::reach < 130) {
            EXPECT_EQ(state.jobs.dequeue().block_index, index + 1 + displacement_window::reach);
        }
    }
    EXPECT_TRUE(comes_to_its_end(driver));
}

} // namespace
} // namespace quarnex::test
