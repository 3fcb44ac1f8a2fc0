#include "pipeline/encoders_fixture.h"
#include "support/error_recorder.h"
#include "support/scoped_limits.h"

namespace quarnex::test {
namespace {

constexpr u8 levels_with_tables = 8;

TEST_P(encoders, without_memory_for_its_table_each_level_up_to_7_fails)
{
    for (u8 level = 0; level < levels_with_tables; ++level) {
        const file_parameters huge = parameters(level, 30); // 4 GiB
        const short_of_memory limit;
        EXPECT_EQ(run_encoder(bytes(100), huge).result, -1) << int{level};
    }
}

TEST_P(encoders, without_memory_for_its_lists_level_8_reports_failure_100)
{
    error_recorder recorder;
    const auto first_bytes = exact_buffer(in_slack);
    block_job job;
    job.parameters = parameters(8);
    job.in_buf = first_bytes.get(); // memory runs out before the others are looked at
    job.in_len = u32{1} << 30;
    const short_of_memory limit;
    EXPECT_EQ(run_codec(*encoder_table[job.parameters.method], job, 1).result, -100);
    EXPECT_EQ(recorder.take(), std::vector{no_memory_failure});
}

} // namespace
} // namespace quarnex::test
