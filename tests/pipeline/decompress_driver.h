// pipeline/decompress_driver.h - runs the decompression driver on a file
#pragma once

#include "support/driver_runs.h"
#include "support/qrx_file.h"

namespace quarnex::test {

inline constexpr u32 block_bytes = 1 << 20;

inline qrx_record full_block(u8 value, i32 distance = 0)
{
    return {displacement_of(distance), m1_run_payload(value, block_bytes)};
}

/// Returns a file of three blocks, the last of 100 bytes, in the order 2, 0, 1.
inline qrx_file shuffled_file()
{
    return {
        {.original_size = 2 * block_bytes + 100},
        {{displacement_of(2), m1_run_payload('c', 100)}, full_block('a', -1), full_block('b', -1)}};
}

class decompress_driver : public driver_fixture {
  protected:
    driver_run run(const bytes& image)
    {
        write_file(dir / "in", image);
        return decompress(GetParam(), recorder, dir / "in", dir / "out");
    }
    driver_run run(const qrx_file& file) { return run(build_qrx(file)); }

    void expect_damage(const driver_run& run)
    {
        expect_driver_failure(run, event_kind::corrupt, status::corrupt);
    }

    bytes restored() const { return read_file(dir / "out"); }
};

} // namespace quarnex::test
