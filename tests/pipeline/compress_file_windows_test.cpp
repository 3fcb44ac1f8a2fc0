#include "pipeline/compress_driver.h"
#include "support/captured_output.h"
#include "support/exclusive_file.h"

#include <filesystem>

namespace quarnex::test {
namespace {

class compress_driver_on_windows : public compress_driver {
  protected:
    /// Expects that the source "in" is told to be denied.
    void expect_denied()
    {
        captured_output printed;
        const driver_run result = compress(GetParam(), quick_parameters, dir / "in", dir / "out");
        EXPECT_EQ(printed.out(), "");
        EXPECT_EQ(printed.err(),
                  "can't open input file '" + dir / "in" + "'. 'Permission denied'\n");
        EXPECT_EQ(result.result, driver_failed);
        EXPECT_FALSE(file_exists(dir / "out.qrx"));
    }
};

INSTANTIATE_TEST_SUITE_P(, compress_driver_on_windows, testing::Values(0, 1, 3), workers_name);

TEST_P(compress_driver_on_windows, a_directory_cannot_be_opened)
{
    std::filesystem::create_directory(dir / "in");
    expect_denied();
}

TEST_P(compress_driver_on_windows, a_source_that_another_has_for_itself_cannot_be_opened)
{
    write_file(dir / "in", bytes(10));
    const exclusive_file held(dir / "in");
    expect_denied();
}

} // namespace
} // namespace quarnex::test
