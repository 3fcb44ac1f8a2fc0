#include "pipeline/decompress_driver.h"
#include "support/scoped_limits.h"

#include <filesystem>
#include <thread>

namespace quarnex::test {
namespace {

TEST_P(decompress_driver, a_full_disk_is_failure_102)
{
    std::filesystem::create_symlink("/dev/full", dir / "out");
    expect_failure(run(shuffled_file()), disk_full_failure);
}

TEST_P(decompress_driver, no_memory_for_the_payload_is_failure_100)
{
    constexpr u32 size = 1 << 30;
    bytes image = build_qrx({{.original_size = size, .block_mb = 1024}, {}});
    image.insert(image.end(), {0xFF, 0xFF, 0xFF, 0x3F, 0}); // size - 1
    write_file(dir / "in", image);
    std::filesystem::resize_file(dir / "in", 32 + 5 + size - 1);
    const driver_run result =
        run_driver(GetParam(), direction::decompress, [&](pipeline_state& state) {
            const short_of_memory limit;
            return decompress_file(state, dir / "in", dir / "out.qrx");
        });
    expect_driver_failure(result, no_memory_failure);
}

TEST_P(decompress_driver, no_memory_for_the_block_is_failure_100)
{
    const qrx_header header{.original_size = 1 << 30, .block_mb = 1024};
    write_file(dir / "in", build_qrx({header, {{0, m1_run_payload('a', 100)}}}));
    const driver_run result =
        run_driver(GetParam(), direction::decompress, [&](pipeline_state& state) {
            const short_of_memory limit;
            const i32 driver_result = decompress_file(state, dir / "in", dir / "out.qrx");
            while (has_workers() && state.abort_count == 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            return driver_result;
        });
    expect_failure(result, no_memory_failure);
}

} // namespace
} // namespace quarnex::test
