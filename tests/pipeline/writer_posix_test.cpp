#include "pipeline/writer_fixture.h"
#include "support/error_recorder.h"

namespace quarnex::test {
namespace {

TEST_F(writer, a_short_write_is_failure_102_and_the_rest_is_drained)
{
    error_recorder recorder;
    const destination full = output_file::create("/dev/full");
    const destination other = create("other");
    put_record(full, 0, 300);
    for (u32 index = 1; index < 300; ++index) { // all are settled: nobody waits for ever
        full->window.wait_to_enter(index);
        put_record(full, index, 300);
    }
    put_record(other, 0, 1);
    end();
    EXPECT_EQ(recorder.take(), std::vector{disk_full_failure});
    EXPECT_EQ(state.abort_count, 1);
    EXPECT_EQ(content("other"), bytes());
    EXPECT_EQ(full.use_count(), 1);
}

TEST_F(writer, a_short_write_of_decoded_data_is_failure_102)
{
    error_recorder recorder;
    put_data(output_file::create("/dev/full"), 0, 2, to_bytes("data"));
    end();
    EXPECT_EQ(recorder.take(), std::vector{disk_full_failure});
    EXPECT_EQ(state.abort_count, 1);
}

} // namespace
} // namespace quarnex::test
