#include "pipeline/decompress_driver.h"

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

} // namespace
} // namespace quarnex::test
