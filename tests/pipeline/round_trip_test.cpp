#include "pipeline/parameters.h"
#include "support/driver_runs.h"
#include "support/qrx_file.h"

#include <span>

namespace quarnex::test {
namespace {

constexpr u32 worker_counts[] = {0, 1, 2, 5, 16};
constexpr u32 few_workers[] = {0, 2}; // for single blocks and slow levels
constexpr u8 methods[] = {1, 2, 3, 4, 5};
constexpr u8 levels = 10;

/// Runs files through both drivers with several numbers of workers.
class pipeline_round_trip : public testing::Test {
  protected:
    void check(const bytes& content, u8 method, u8 level,
               std::span<const u32> all_workers = worker_counts)
    {
        SCOPED_TRACE("method " + std::to_string(method) + " level " + std::to_string(level));
        write_file(dir / "in", content);
        file_parameters parameters{.codec = {.method = method, .level = level, .hash_bits = 14},
                                   .block_mb = 1};
        settle_parameters(parameters, level_defaults());
        std::vector<bytes> in_place;
        for (const u32 workers : all_workers) {
            SCOPED_TRACE(std::to_string(workers) + " workers");
            const auto payloads = compressed_payloads(workers, parameters);
            if (workers == 0) in_place = payloads;
            ASSERT_TRUE(payloads == in_place) << "payloads depend on the number of workers";
            check_restored(workers, content);
        }
    }

  private:
    std::vector<bytes> compressed_payloads(u32 workers, const file_parameters& parameters)
    {
        EXPECT_EQ(compress(workers, recorder, parameters, dir / "in", dir / "c.qrx").first_failure,
                  status::done);
        const auto file = parse_qrx(read_file(dir / "c.qrx"));
        const auto payloads = file ? payloads_in_order(*file) : std::nullopt;
        EXPECT_TRUE(payloads);
        if (workers <= 1) {
            for (const qrx_record& record : file->records) EXPECT_EQ(record.displacement, 0);
        }
        return payloads.value_or(std::vector<bytes>());
    }

    void check_restored(u32 workers, const bytes& content)
    {
        EXPECT_EQ(decompress(workers, recorder, dir / "c.qrx", dir / "c").first_failure,
                  status::done);
        EXPECT_TRUE(recorder.take().empty());
        ASSERT_TRUE(read_file(dir / "c") == content);
    }

    const time_guard guard{250};
    event_recorder recorder;
    temp_dir dir;
};

TEST_F(pipeline_round_trip, sizes_around_every_block_boundary)
{
    for (const usize size :
         {usize{0}, usize{1}, usize{2}, usize{5}, mib - 1, mib, mib + 1, 2 * mib, 3 * mib + 17}) {
        SCOPED_TRACE(size);
        for (const u8 method : methods) check(find_shape("text").make(size, size), method, 0);
    }
}

TEST_F(pipeline_round_trip, every_shape_with_every_method_at_every_level)
{
    for (const shape& kind : all_shapes()) {
        SCOPED_TRACE(kind.name);
        for (const u8 method : methods) {
            for (u8 level = 0; level < levels; ++level)
                check(kind.make(12000 + level, level), method, level, few_workers);
        }
    }
}

TEST_F(pipeline_round_trip, files_of_blocks_of_different_shapes)
{
    random_source random(7);
    for (u8 level = 0; level < levels; ++level) {
        bytes content;
        for (int part = 0; part < 4; ++part) {
            const shape& kind = all_shapes()[random.below(static_cast<u32>(all_shapes().size()))];
            const bytes piece = kind.make(1 + random.below(mib), random.next());
            content.insert(content.end(), piece.begin(), piece.end());
        }
        check(content, methods[level % std::size(methods)], level,
              level < 8 ? std::span<const u32>(worker_counts) : few_workers);
    }
}

TEST_F(pipeline_round_trip, many_small_files_of_random_length)
{
    random_source random(8);
    for (int i = 0; i < 20; ++i) {
        const bytes content =
            find_shape("mixture").make(random.below(1U << random.below(13)), random.next());
        SCOPED_TRACE(content.size());
        check(content, methods[static_cast<usize>(i) % std::size(methods)],
              static_cast<u8>(random.below(levels)));
    }
}

TEST(pipeline_with_one_worker, every_displacement_byte_is_0)
{
    const time_guard guard;
    const temp_dir dir;
    write_file(dir / "in", find_shape("mixture").make(9 * mib, 1));
    event_recorder recorder;
    compress(1, recorder, quick_parameters, dir / "in", dir / "c.qrx");
    const auto file = parse_qrx(read_file(dir / "c.qrx"));
    ASSERT_TRUE(file);
    ASSERT_EQ(file->records.size(), 9U);
    for (const qrx_record& record : file->records) EXPECT_EQ(record.displacement, 0);
}

TEST(pipeline_with_several_files, one_engine_processes_files_in_both_directions)
{
    const time_guard guard;
    const temp_dir dir;
    event_recorder recorder;
    engine work(system_allocator, 4, recorder.watcher());
    const engine_threads threads(work);
    for (const direction mode : {direction::compress, direction::decompress}) {
        for (int i = 0; i < 30; ++i) {
            const std::string name = dir / std::to_string(i);
            const std::string packed = name + ".qrx";
            const std::string restored = name + ".restored";
            const bytes content = find_shape("text").make(static_cast<usize>(i) * 70000, 3);
            if (mode == direction::compress) {
                write_file(name, content);
                EXPECT_EQ(compress_file(work, {name.c_str(), packed.c_str()}, quick_parameters),
                          status::done);
            } else {
                EXPECT_EQ(decompress_file(work, {packed.c_str(), restored.c_str()}), status::done);
            }
        }
        work.wait_for_blocks();
    }
    for (int i = 0; i < 30; ++i) {
        const std::string name = dir / std::to_string(i);
        EXPECT_TRUE(read_file(name + ".restored") == read_file(name)) << i;
    }
    EXPECT_TRUE(recorder.take().empty());
    EXPECT_EQ(work.first_failure(), status::done);
}

} // namespace
} // namespace quarnex::test
