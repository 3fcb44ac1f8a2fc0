#include "pipeline/compress_driver.h"
#include "support/scoped_limits.h"

#include <cerrno>
#include <filesystem>

namespace quarnex::test {
namespace {

TEST_P(compress_driver, a_source_that_cannot_be_read_is_reported_and_fails)
{
    std::filesystem::create_directory(dir / "in");
    write_file(dir / "in/entry", {}); // gives the directory a size
    const recorded_event reported =
        expect_driver_failure(run_from(dir / "in"), event_kind::source_unread, status::read_failed);
    EXPECT_EQ(reported.name, dir / "in");
    EXPECT_EQ(reported.cause, EISDIR);
}

TEST_P(compress_driver, a_header_that_cannot_be_written_is_reported_and_fails)
{
    std::filesystem::create_symlink("/dev/full", dir / "out.qrx");
    const recorded_event reported = expect_driver_failure(
        run(bytes(3 * mib)), event_kind::destination_unwritten, status::write_failed);
    EXPECT_EQ(reported.name, dir / "out.qrx");
    EXPECT_EQ(reported.cause, ENOSPC);
}

TEST_P(compress_driver, a_small_file_that_cannot_be_written_is_reported_and_fails)
{
    std::filesystem::create_symlink("/dev/full", dir / "out.qrx");
    const recorded_event reported = expect_driver_failure(
        run(bytes_of("some text")), event_kind::destination_unwritten, status::write_failed);
    EXPECT_EQ(reported.name, dir / "out.qrx");
    EXPECT_EQ(reported.cause, ENOSPC);
}

TEST_P(compress_driver, a_partly_written_record_is_reported_and_fails)
{
    const bytes content = find_shape("random").make(3 * mib, 5);
    write_file(dir / "in", content);
    const short_of_disk limit(mib + mib / 2);
    const recorded_event reported = expect_failure(
        run_from(dir / "in"), event_kind::destination_unwritten, status::write_failed);
    EXPECT_EQ(reported.cause, EFBIG);
    EXPECT_EQ(std::filesystem::file_size(dir / "out.qrx"), mib + mib / 2);
}

} // namespace
} // namespace quarnex::test
