// pipeline/compress_driver.h - a file through the compression driver
#pragma once

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

    qrx_file compressed() const
    {
        return take_qrx_apart(read_file(dir / "out.qrx")).value_or(qrx_file{});
    }
};

} // namespace quarnex::test
