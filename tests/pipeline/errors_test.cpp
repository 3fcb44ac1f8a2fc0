#include "pipeline/errors.h"

#include "support/captured_output.h"
#include "support/error_recorder.h"
#include "support/system_differences.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace quarnex {
namespace {

using test::captured_output;
using test::error_recorder;

/// Puts a handler that only notes its text in the place of the printing one.
struct handler_recorder {
    handler_recorder()
    {
        text.clear();
        error_handler = [](i32 new_code, const char* new_text) {
            code = new_code;
            text = new_text;
            return i32{77};
        };
    }
    ~handler_recorder() { error_handler = print_error; }
    handler_recorder(const handler_recorder&) = delete;
    handler_recorder& operator=(const handler_recorder&) = delete;

    static inline i32 code = 0;
    static inline std::string text;
};

TEST(errors, texts_stand_at_100_to_105_and_nowhere_else)
{
    ASSERT_EQ(error_messages.size(), 106U);
    for (usize code = 0; code < 100; ++code) EXPECT_EQ(error_messages[code], nullptr);
    EXPECT_STREQ(error_messages[100], "malloc error");
    EXPECT_STREQ(error_messages[101], "cannot open file '%s'");
    EXPECT_STREQ(error_messages[102], "write error. errno=%d '%s'");
    EXPECT_STREQ(error_messages[103], "read error. errno=%d '%s'");
    EXPECT_STREQ(error_messages[104], "file header. no quarnex format");
    EXPECT_STREQ(error_messages[105], "file is corrupted");
}

TEST(errors, print_error_writes_one_line_on_standard_output)
{
    captured_output printed;
    EXPECT_EQ(print_error(105, "file is %s"), 0);
    EXPECT_EQ(printed.out(), "Error: 105 file is %s\n");
    EXPECT_EQ(printed.err(), "");
}

TEST(errors, a_report_with_a_format_prints_it_and_its_text_and_calls_the_handler)
{
    captured_output printed;
    EXPECT_EQ(report_error(error_write, error_messages[102], 28, "No space"), -102);
    EXPECT_EQ(printed.out(), "message:write error. errno=%d '%s';'write error. errno=28 'No space''"
                             "Error: 102 write error. errno=28 'No space'\n");
    EXPECT_EQ(printed.err(), "");
}

TEST(errors, a_report_with_a_format_takes_the_handler_that_is_set_and_ignores_its_result)
{
    const handler_recorder handler;
    captured_output printed;
    EXPECT_EQ(report_error(error_open, "cannot open file '%s'", "x"), -101);
    EXPECT_EQ(printed.out(), "message:cannot open file '%s';'cannot open file 'x''");
    EXPECT_EQ(handler_recorder::code, 101);
    EXPECT_EQ(handler_recorder::text, "cannot open file 'x'");
}

TEST(errors, a_text_is_cut_at_2047_bytes)
{
    const handler_recorder handler;
    captured_output printed;
    for (const usize length : {2046U, 2047U, 2048U, 5000U}) {
        report_error(error_open, "%s", std::string(length, 'n').c_str());
        EXPECT_EQ(handler_recorder::text, std::string(std::min<usize>(length, 2047), 'n'));
    }
}

TEST(errors, a_report_without_a_format_is_fatal_and_prints_nothing)
{
    error_recorder recorder;
    captured_output printed;
    EXPECT_EQ(report_error(error_no_memory, nullptr), -100);
    EXPECT_EQ(report_error(error_write, nullptr, 28, "No space"), -102);
    EXPECT_EQ(report_error(error_corrupted, nullptr), -105);
    EXPECT_EQ(printed.out(), "");
    EXPECT_EQ(printed.err(), "");
    EXPECT_EQ(recorder.take(),
              (std::vector<error_recorder::failure>{{100, "malloc error"},
                                                    {102, "write error. errno=28 'No space'"},
                                                    {105, "file is corrupted"}}));
}

TEST(errors_death, the_process_ends_by_abort_with_one_line_on_standard_error)
{
    EXPECT_EXIT(end_process(102, "write error"), test::ended_abnormally,
                "^quarnex: error 102: write error\n$");
}

TEST(errors, a_fatal_report_tells_what_errno_says)
{
    error_recorder recorder;
    errno = ENOSPC;
    EXPECT_EQ(report_fatal(error_write), -102);
    errno = EIO;
    EXPECT_EQ(report_fatal(error_read), -103);
    EXPECT_EQ(recorder.take(),
              (std::vector<error_recorder::failure>{
                  test::disk_full_failure, {103, "read error. errno=5 'Input/output error'"}}));
}

TEST(errors, a_fatal_report_of_another_code_has_its_text_alone)
{
    error_recorder recorder;
    EXPECT_EQ(report_fatal(error_no_memory), -100);
    EXPECT_EQ(report_fatal(error_no_header), -104);
    EXPECT_EQ(report_fatal(error_corrupted), -105);
    EXPECT_EQ(recorder.take(),
              (std::vector<error_recorder::failure>{test::no_memory_failure,
                                                    {104, "file header. no quarnex format"},
                                                    test::corrupted_failure}));
}

TEST(errors_death, a_fatal_report_ends_the_process_on_the_spot)
{
    EXPECT_EXIT(report_fatal(error_corrupted), test::ended_abnormally,
                "^quarnex: error 105: file is corrupted\n$");
}

TEST(errors_death, what_was_printed_before_the_end_is_not_lost)
{
    EXPECT_EXIT(
        {
            test::join_output_with_errors();
            std::printf("printed before, ");
            end_process(100, "malloc error");
        },
        test::ended_abnormally, "^printed before, quarnex: error 100: malloc error\n$");
}

} // namespace
} // namespace quarnex
