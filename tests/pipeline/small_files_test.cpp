#include "support/driver_runs.h"
#include "support/qrx_file.h"

#include <filesystem>

namespace quarnex::test {
namespace {

/// Compresses and restores many small files, and one that is a byte too large to be small.
class small_files : public driver_fixture {
  public:
    std::string name(const char* stem, usize i) const
    {
        return dir / std::string(stem).append(std::to_string(i));
    }

  protected:
    void plant()
    {
        for (usize i = 0; i < 100; ++i) {
            sources.push_back(find_shape("text").make(i * i * 7 % 9000, i));
        }
        for (const usize size : {0U, 1U, max_small_file - 1, max_small_file, max_small_file + 1}) {
            sources.push_back(find_shape("mixture").make(size, size));
        }
        sources.push_back(find_shape("random").make(max_small_file, 1)); // stored
        sources.push_back(bytes(max_small_file, 'r'));
        for (usize i = 0; i < sources.size(); ++i) write_file(name("in", i), sources[i]);
    }

    void compress_all(engine& work, const char* to)
    {
        for (usize i = 0; i < sources.size(); ++i) {
            EXPECT_EQ(
                compress_file(work, {name("in", i).c_str(), name(to, i).c_str()}, quick_parameters),
                status::done);
        }
    }

    void decompress_all(engine& work, const char* from)
    {
        for (usize i = 0; i < sources.size(); ++i) {
            EXPECT_EQ(decompress_file(work, {name(from, i).c_str(), name("out", i).c_str()}),
                      status::done);
        }
    }

    std::vector<bytes> sources;
};

INSTANTIATE_TEST_SUITE_P(threads, small_files, testing::Values(0, 1, 3, 16), workers_name);

TEST_P(small_files, are_the_same_with_any_number_of_workers_and_restored)
{
    plant();
    {
        engine alone(system_allocator, 0, recorder.watcher());
        compress_all(alone, "alone");
    }
    engine work(system_allocator, GetParam(), recorder.watcher());
    {
        const engine_threads threads(work);
        compress_all(work, "c");
        work.wait_for_blocks();
        decompress_all(work, "c");
    }
    EXPECT_EQ(work.first_failure(), status::done);
    EXPECT_TRUE(recorder.take().empty());
    for (usize i = 0; i < sources.size(); ++i) {
        EXPECT_TRUE(read_file(name("c", i)) == read_file(name("alone", i))) << i;
        EXPECT_TRUE(read_file(name("out", i)) == sources[i]) << i;
    }
}

TEST_P(small_files, are_written_when_all_blocks_are_waited_for)
{
    sources = {bytes_of("one")};
    write_file(name("in", 0), sources[0]);
    engine work(system_allocator, GetParam(), recorder.watcher());
    const engine_threads threads(work);
    compress_all(work, "c");
    work.wait_for_blocks();
    EXPECT_TRUE(parse_qrx(read_file(name("c", 0))));
}

TEST_P(small_files, with_short_payloads_are_reported_as_decoded_and_padded)
{
    const qrx_file file{{.original_size = 1000}, {{0, m1_run_payload('q', 900)}}};
    write_file(dir / "in", build_qrx(file));
    const driver_run run = decompress(GetParam(), recorder, dir / "in", dir / "out");
    EXPECT_EQ(run.first_failure, status::done);
    const recorded_event reported = expect_event(event_kind::block_short);
    EXPECT_EQ(reported.got, 900U);
    bytes expected(900, 'q');
    expected.resize(1000);
    EXPECT_EQ(read_file(dir / "out"), expected);
}

TEST_P(small_files, are_written_before_the_failure_of_a_later_file_is_reported)
{
    sources = std::vector<bytes>(3, bytes_of("some text"));
    for (usize i = 0; i < sources.size(); ++i) write_file(name("in", i), sources[i]);
    struct seen {
        const small_files& files;
        usize written = 0;
    } context{*this};
    const auto count_written = [](void* self, const event& /*happened*/) {
        auto& found = *static_cast<seen*>(self);
        for (usize i = 0; i < 3; ++i)
            found.written += parse_qrx(read_file(found.files.name("c", i))) ? 1 : 0;
    };
    engine work(system_allocator, GetParam(), {.tell = count_written, .context = &context});
    const engine_threads threads(work);
    compress_all(work, "c");
    const std::string missing = dir / "missing";
    const std::string out = dir / "out";
    EXPECT_EQ(compress_file(work, {missing.c_str(), out.c_str()}, quick_parameters),
              status::source_unopened);
    EXPECT_EQ(context.written, 3U);
}

TEST_P(small_files, are_reported_if_256_unfinished_ones_are_open)
{
    if (max_open_files() < 512) GTEST_SKIP() << "too few files can be open";
    // Only the last of two blocks.
    write_file(dir / "cut", build_qrx({{.original_size = (u32{1} << 20) + 3},
                                       {{displacement_of(1), bytes_of("end")}}}));
    write_file(dir / "whole", build_qrx({{.original_size = 4}, {{0, bytes_of("text")}}}));
    const driver_run run = run_driver(GetParam(), recorder, [&](engine& work) {
        const auto restore = [&](const char* from, const std::string& to) {
            const std::string source = dir / from;
            return decompress_file(work, {source.c_str(), to.c_str()});
        };
        for (usize i = 0; i < 255; ++i) EXPECT_EQ(restore("cut", name("cut", i)), status::done);
        work.wait_for_blocks();
        EXPECT_EQ(restore("whole", dir / "a"), status::done);
        EXPECT_EQ(restore("cut", name("cut", 255)), status::done);
        work.wait_for_blocks();
        return restore("whole", dir / "b");
    });
    EXPECT_EQ(read_file(dir / "a"), bytes_of("text"));
    EXPECT_EQ(run.result, status::done);
    if (!has_workers()) {
        expect_success(run);
        return;
    }
    const recorded_event reported =
        expect_failure(run, event_kind::too_many_destinations, status::too_many_files);
    EXPECT_EQ(reported.name, dir / "b");
}

/// Compresses small files with an engine without threads: the test is the worker.
class small_file_jobs : public testing::Test {
  protected:
    void submit(const std::string& out)
    {
        const std::string source = dir / "in";
        const std::string destination = dir / out;
        EXPECT_EQ(compress_file(work, {source.c_str(), destination.c_str()}, quick_parameters),
                  status::done);
    }

    void finish(block_job job)
    {
        scratch memory(system_allocator);
        for (u32 i = 0; i < job.file_count; ++i) work.run_file(memory, job.files[i]);
    }

    const time_guard guard;
    const temp_dir dir;
    engine work{system_allocator, 2, {}};
};

TEST_F(small_file_jobs, are_read_and_created_by_the_driver_and_written_by_the_worker)
{
    write_file(dir / "in", bytes_of("abc"));
    submit("out");
    EXPECT_EQ(read_file(dir / "out").size(), file_header_bytes);
    std::filesystem::remove(dir / "in");
    work.flush_files();
    finish(work.jobs.dequeue());
    work.wait_for_blocks();
    const auto written = parse_qrx(read_file(dir / "out"));
    ASSERT_TRUE(written);
    ASSERT_EQ(written->records.size(), 1U);
    EXPECT_EQ(written->records[0].payload, bytes_of("abc"));
}

TEST_F(small_file_jobs, have_up_to_16_files)
{
    if (max_open_files() < 512) GTEST_SKIP() << "too few files can be open";
    write_file(dir / "in", bytes_of("abc"));
    for (int i = 0; i < 16; ++i) submit(std::to_string(i));
    block_job job = work.jobs.dequeue();
    EXPECT_EQ(job.file_count, 16U);
    finish(std::move(job));
    work.wait_for_blocks();
}

TEST_F(small_file_jobs, are_queued_before_a_larger_file)
{
    write_file(dir / "in", bytes_of("abc"));
    submit("small");
    write_file(dir / "in", bytes(max_small_file + 1));
    submit("large");
    block_job job = work.jobs.dequeue();
    EXPECT_EQ(job.file_count, 1U);
    finish(std::move(job));
    EXPECT_EQ(work.jobs.dequeue().file_count, 0U);
}

TEST_F(small_file_jobs, do_not_wait_for_more_once_they_have_enough_bytes)
{
    write_file(dir / "in", bytes(max_small_file / 2));
    submit("a");
    submit("b");
    block_job job = work.jobs.dequeue();
    EXPECT_EQ(job.file_count, 2U);
    finish(std::move(job));
    work.wait_for_blocks();
}

// What the observer is asked and told about destinations

struct destinations {
    bool replaces = true;
    std::vector<std::string> asked;
    usize created = 0;

    observer watcher()
    {
        return {.replace =
                    [](void* self, const char* source, const char* destination) {
                        auto* const seen = static_cast<destinations*>(self);
                        seen->asked.insert(seen->asked.end(), {source, destination});
                        return seen->replaces;
                    },
                .created =
                    [](void* self, int descriptor) {
                        if (descriptor >= 0) ++static_cast<destinations*>(self)->created;
                    },
                .context = this};
    }
};

class existing_destination : public testing::TestWithParam<u32> {
  protected:
    /// Compresses "in" to "out", and "out" to "restored".
    std::pair<status, status> run()
    {
        const std::string in = dir / "in";
        const std::string out = dir / "out";
        const std::string restored = dir / "restored";
        engine work(system_allocator, GetParam(), seen.watcher());
        const engine_threads threads(work);
        const status compressed = compress_file(work, {in.c_str(), out.c_str()}, quick_parameters);
        work.wait_for_blocks();
        return {compressed, decompress_file(work, {out.c_str(), restored.c_str()})};
    }

    const time_guard guard;
    const temp_dir dir;
    destinations seen;
};

INSTANTIATE_TEST_SUITE_P(threads, existing_destination, testing::Values(0, 2), workers_name);

TEST_P(existing_destination, is_asked_about_and_replaced)
{
    write_file(dir / "in", bytes_of("text"));
    write_file(dir / "out", bytes(1000));
    write_file(dir / "restored", bytes(1000));
    EXPECT_EQ(run(), std::pair(status::done, status::done));
    EXPECT_EQ(seen.asked,
              (std::vector<std::string>{dir / "in", dir / "out", dir / "out", dir / "restored"}));
    EXPECT_EQ(seen.created, 2U);
    EXPECT_EQ(read_file(dir / "restored"), bytes_of("text"));
}

TEST_P(existing_destination, is_kept_if_the_observer_refuses_to_replace_it)
{
    const bytes packed = build_qrx({{.original_size = 4}, {{0, bytes_of("text")}}});
    write_file(dir / "in", bytes_of("text"));
    write_file(dir / "out", packed);
    write_file(dir / "restored", bytes_of("mine"));
    seen.replaces = false;
    EXPECT_EQ(run(), std::pair(status::skipped, status::skipped));
    EXPECT_EQ(seen.created, 0U);
    EXPECT_EQ(read_file(dir / "out"), packed);
    EXPECT_EQ(read_file(dir / "restored"), bytes_of("mine"));
}

TEST_P(existing_destination, that_is_new_is_not_asked_about)
{
    write_file(dir / "in", bytes_of("text"));
    EXPECT_EQ(run(), std::pair(status::done, status::done));
    EXPECT_TRUE(seen.asked.empty());
    EXPECT_EQ(seen.created, 2U);
}

} // namespace
} // namespace quarnex::test
