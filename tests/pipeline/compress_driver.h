// pipeline/compress_driver.h - a file through the compression driver
#pragma once

#include "support/captured_output.h"
#include "support/driver_runs.h"
#include "support/qrx_file.h"

namespace quarnex::test {

class compress_driver : public driver_fixture {
  protected:
    driver_run run(const bytes& content, const file_parameters& parameters = quick_parameters)
    {
        write_file(dir / "in", content);
        return compress(GetParam(), parameters, dir / "in", dir / "out");
    }

    /// Expects that the source can't be opened, which is told with the reason.
    void expect_no_source(const std::string& source, const std::string& reason)
    {
        captured_output printed;
        const driver_run result = compress(GetParam(), quick_parameters, source, dir / "out");
        EXPECT_EQ(printed.out(), "");
        EXPECT_EQ(printed.err(), "can't open input file '" + source + "'. '" + reason + "'\n");
        EXPECT_EQ(result.result, driver_failed);
        EXPECT_FALSE(file_exists(dir / "out.qrx"));
    }

    qrx_file compressed() const
    {
        return take_qrx_apart(read_file(dir / "out.qrx")).value_or(qrx_file{});
    }
};

} // namespace quarnex::test
