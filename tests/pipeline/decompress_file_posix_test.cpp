#include "pipeline/decompress_driver.h"
#include "support/limited_allocator.h"

#include <cerrno>
#include <filesystem>

namespace quarnex::test {
namespace {

TEST_P(decompress_driver, a_full_disk_is_reported_and_fails)
{
    std::filesystem::create_symlink("/dev/full", dir / "out");
    const recorded_event reported = expect_failure(
        run(shuffled_file()), event_kind::destination_unwritten, status::write_failed);
    EXPECT_EQ(reported.cause, ENOSPC);
    EXPECT_EQ(reported.name, dir / "out");
}

TEST_P(decompress_driver, memory_depends_on_the_blocks_and_not_on_the_block_size)
{
    // Only the last block, which is short, has a record.
    for (const u64 block_mb : {u64{1000}, u64{2047}, u64{4096}, u64{65535}}) {
        write_file(dir / "in", build_qrx({{.original_size = (block_mb << 20) + 300,
                                           .block_mb = static_cast<u16>(block_mb)},
                                          {{displacement_of(1), m1_run_payload('z', 300)}}}));
        limited_allocator memory;
        memory.refuse_from(usize{1} << 20);
        expect_success(decompress(GetParam(), recorder, dir / "in", dir / "out", memory.get()));
    }
}

} // namespace
} // namespace quarnex::test
