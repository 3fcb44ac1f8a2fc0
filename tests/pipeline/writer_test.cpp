#include "format/container.h"
#include "pipeline/writer_fixture.h"
#include "support/captured_output.h"
#include "support/program.h"
#include "support/system_differences.h"

#include <cstdlib>
#include <thread>

namespace quarnex::test {
namespace {

bool is_closed(const destination& file)
{
    return !file->file.is_open();
}

TEST_F(writer, two_swapped_records_have_displacement_bytes_2_and_3)
{
    const destination file = create("out");
    put_record(file, 1, 2, 'b');
    put_record(file, 0, 2, 'a');
    end();
    EXPECT_EQ(content("out"), (bytes{1, 0, 0, 0, 2, 'b', 1, 0, 0, 0, 3, 'a'}));
}

TEST_F(writer, records_in_order_have_displacement_byte_0)
{
    const destination file = create("out");
    for (u32 index = 0; index < 3; ++index) put_record(file, index, 3);
    end();
    EXPECT_EQ(content("out"), (bytes{1, 0, 0, 0, 0, 'p', 1, 0, 0, 0, 0, 'p', 1, 0, 0, 0, 0, 'p'}));
}

TEST_F(writer, a_block_120_positions_late_has_displacement_byte_241)
{
    const destination file = create("out");
    for (u32 index = 1; index <= 120; ++index) put_record(file, index, 121);
    put_record(file, 0, 121);
    end();
    const bytes records = content("out");
    ASSERT_EQ(records.size(), 121U * 6);
    for (usize i = 0; i < 120; ++i) ASSERT_EQ(records[6 * i + displacement_offset], 2);
    EXPECT_EQ(records[6 * 120 + displacement_offset], 241);
}

TEST_F(writer, blocks_of_interleaved_files_are_counted_for_each_file)
{
    const destination first = create("first");
    const destination second = create("second");
    put_record(first, 0, 2);
    put_record(second, 1, 3);
    put_record(second, 0, 3);
    put_record(first, 1, 2);
    put_record(second, 2, 3);
    end();
    EXPECT_EQ(content("first"), (bytes{1, 0, 0, 0, 0, 'p', 1, 0, 0, 0, 0, 'p'}));
    EXPECT_EQ(content("second"),
              (bytes{1, 0, 0, 0, 2, 'p', 1, 0, 0, 0, 3, 'p', 1, 0, 0, 0, 0, 'p'}));
}

TEST_F(writer, a_file_is_closed_after_its_last_block_and_not_before)
{
    const destination whole = create("whole");
    const destination partial = create("partial");
    for (u32 index = 0; index < 2; ++index) {
        put_record(whole, index, 2);
        put_record(partial, index, 3);
    }
    end();
    EXPECT_TRUE(is_closed(whole));
    EXPECT_FALSE(is_closed(partial));
}

TEST_F(writer, the_only_record_of_an_empty_file_closes_it)
{
    const destination record = create("record");
    const destination data = create("data");
    put_record(record, 0, 0);
    put_data(data, 0, 0, {});
    end();
    EXPECT_TRUE(is_closed(record));
    EXPECT_TRUE(is_closed(data));
    EXPECT_EQ(content("data"), bytes());
}

TEST_F(writer, a_block_written_past_the_end_leaves_a_gap_that_a_later_block_fills)
{
    const destination file = create("out");
    const bytes block(mib, 'f');
    put_data(file, 2, 3, bytes_of("end"));
    put_data(file, 0, 3, block);
    bytes gap;
    while (std::count(gap.begin(), gap.end(), 'f') != mib) { // until both blocks are written
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        gap = content("out");
    }
    ASSERT_EQ(gap.size(), 2 * mib + 3);
    EXPECT_TRUE(
        std::all_of(gap.begin() + mib, gap.begin() + 2 * mib, [](u8 byte) { return byte == 0; }));

    put_data(file, 1, 3, block);
    end();
    bytes expected(2 * mib, 'f');
    for (const u8 byte : bytes_of("end")) expected.push_back(byte);
    EXPECT_TRUE(content("out") == expected);
    EXPECT_TRUE(is_closed(file));
}

TEST_F(writer, written_records_are_marked_done_in_their_window)
{
    const destination file = create("out");
    for (u32 index = 0; index < 300; ++index) {
        file->window.wait_to_enter(index);
        put_record(file, index, 300);
    }
    end();
    EXPECT_EQ(content("out").size(), 300U * 6);
}

TEST_F(writer, handles_256_files_in_flight_and_many_more_in_sequence)
{
    std::vector<destination> open;
    for (int i = 0; i < 255; ++i) {
        open.push_back(create("open" + std::to_string(i)));
        put_record(open.back(), 0, 2);
    }
    for (int i = 0; i < 100; ++i) { // all use the last free table entry
        const destination short_file = create("short" + std::to_string(i));
        put_record(short_file, 0, 1);
    }
    for (const destination& file : open) put_record(file, 1, 2);
    end();
    for (const destination& file : open) EXPECT_TRUE(is_closed(file));
    EXPECT_EQ(work.thread_failures(), 0U);
}

TEST_F(writer, a_257th_file_in_flight_is_reported_and_fails)
{
    for (int i = 0; i < 257; ++i) put_record(create_output(null_device), 0, 2);
    end();
    const auto reported = recorder.take();
    ASSERT_EQ(reported.size(), 1U);
    EXPECT_EQ(reported[0].kind, event_kind::too_many_destinations);
    EXPECT_EQ(reported[0].wanted, 256U);
    EXPECT_EQ(reported[0].name, null_device);
    EXPECT_EQ(work.first_failure(), status::too_many_files);
}

} // namespace
} // namespace quarnex::test
