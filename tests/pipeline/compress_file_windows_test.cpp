#include "pipeline/compress_driver.h"
#include "support/exclusive_file.h"

#include <cerrno>
#include <filesystem>

namespace quarnex::test {
namespace {

TEST_P(compress_driver, a_directory_cannot_be_opened)
{
    std::filesystem::create_directory(dir / "in");
    expect_no_source(dir / "in", EACCES);
}

TEST_P(compress_driver, a_source_opened_exclusively_by_another_process_cannot_be_opened)
{
    write_file(dir / "in", bytes(10));
    const exclusive_file held(dir / "in");
    expect_no_source(dir / "in", EACCES);
}

} // namespace
} // namespace quarnex::test
