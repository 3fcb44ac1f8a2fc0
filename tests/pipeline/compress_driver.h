// pipeline/compress_driver.h - runs the compression driver on a file
#pragma once

#include "support/driver_runs.h"
#include "support/qrx_file.h"

namespace quarnex::test {

class compress_driver : public driver_fixture {
  protected:
    driver_run run(const bytes& content, const file_parameters& parameters = quick_parameters)
    {
        write_file(dir / "in", content);
        return compress(GetParam(), recorder, parameters, dir / "in", dir / "out.qrx");
    }

    driver_run run_from(const std::string& source)
    {
        return compress(GetParam(), recorder, quick_parameters, source, dir / "out.qrx");
    }

    /// Expects an event that the source can't be opened because of `cause`.
    void expect_no_source(const std::string& source, int cause)
    {
        const recorded_event reported = expect_driver_failure(
            run_from(source), event_kind::source_unopened, status::source_unopened);
        EXPECT_EQ(reported.name, source);
        EXPECT_EQ(reported.cause, cause);
        EXPECT_FALSE(file_exists(dir / "out.qrx"));
    }

    qrx_file compressed() const
    {
        return parse_qrx(read_file(dir / "out.qrx")).value_or(qrx_file{});
    }
};

} // namespace quarnex::test
