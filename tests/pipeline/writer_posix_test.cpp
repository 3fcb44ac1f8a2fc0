#include "pipeline/writer_fixture.h"

#include <cerrno>

namespace quarnex::test {
namespace {

TEST_F(writer, a_failed_write_is_reported_and_the_rest_of_its_file_is_dropped)
{
    const destination full = create_output("/dev/full");
    const destination other = create("other");
    put_record(full, 0, 300);
    for (u32 index = 1; index < 300; ++index) { // each is marked done, so the window never blocks
        full->window.wait_to_enter(index);
        put_record(full, index, 300);
    }
    put_record(other, 0, 1);
    end();
    const auto reported = recorder.take();
    ASSERT_EQ(reported.size(), 1U);
    EXPECT_EQ(reported[0].kind, event_kind::destination_unwritten);
    EXPECT_EQ(reported[0].cause, ENOSPC);
    EXPECT_EQ(reported[0].name, "/dev/full");
    EXPECT_TRUE(reported[0].on_worker);
    EXPECT_EQ(work.thread_failures(), 1U);
    EXPECT_EQ(work.first_failure(), status::write_failed);
    EXPECT_EQ(content("other").size(), 6U) << "other files are written";
}

TEST_F(writer, a_failed_write_of_decoded_data_is_reported)
{
    put_data(create_output("/dev/full"), 0, 2, bytes_of("data"));
    end();
    const auto reported = recorder.take();
    ASSERT_EQ(reported.size(), 1U);
    EXPECT_EQ(reported[0].cause, ENOSPC);
    EXPECT_EQ(reported[0].mode, direction::decompress);
}

} // namespace
} // namespace quarnex::test
