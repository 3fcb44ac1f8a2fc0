#include "frontend/messages.h"

#include "support/captured_output.h"
#include "support/system_differences.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace quarnex {
namespace {

void report(const event& happened)
{
    report_event(nullptr, happened);
}

/// The output for an event that does not end the process.
struct printed {
    std::string out;
    std::string err;
    bool operator==(const printed&) const = default;
};

printed report_and_catch(const event& happened)
{
    test::captured_output caught;
    report(happened);
    return {caught.out(), caught.err()};
}

const std::string no_such_file = std::strerror(ENOENT);

TEST(messages, failures_of_one_file_print_a_line_on_standard_error)
{
    EXPECT_EQ(report_and_catch({.kind = event_kind::source_unopened, .cause = ENOENT, .name = "a"}),
              (printed{"", "can't open input file 'a'. '" + no_such_file + "'\n"}));
    EXPECT_EQ(report_and_catch({.kind = event_kind::source_unread, .cause = ENOENT, .name = "a"}),
              (printed{"", "can't read input file 'a'. '" + no_such_file + "'\n"}));
    EXPECT_EQ(report_and_catch({.kind = event_kind::source_shrank, .name = "a"}),
              (printed{"", "input file 'a' has become shorter\n"}));
    EXPECT_EQ(
        report_and_catch({.kind = event_kind::destination_uncreated, .cause = ENOENT, .name = "a"}),
        (printed{"", "creat error 'a' '" + no_such_file + "'\n"}));
}

TEST(messages, a_short_block_prints_a_line_on_standard_output)
{
    EXPECT_EQ(
        report_and_catch({.kind = event_kind::block_short, .name = "a", .wanted = 200, .got = 70}),
        (printed{"Fatal Error in decomp 'a'.70,200\n", ""}));
}

TEST(messages, a_thread_that_fails_to_start_prints_a_line_on_standard_output)
{
    EXPECT_EQ(report_and_catch({.kind = event_kind::thread_unstarted}),
              (printed{"Error thread_create.\n", ""}));
}

TEST(messages, a_codec_without_memory_prints_its_threads_text_and_a_named_line)
{
    event happened{.kind = event_kind::block_uncoded,
                   .name = "a",
                   .block = 3,
                   .codec_error = codec_status::no_table};
    const std::string line = "a: not enough memory for block 3\n";
    EXPECT_EQ(report_and_catch(happened), (printed{"compression error\n", line}));
    happened.on_worker = true;
    EXPECT_EQ(report_and_catch(happened), (printed{"error compressing\n", line}));
    happened.codec_error = codec_status::no_state;
    EXPECT_EQ(report_and_catch(happened), (printed{"", line}));
}

/// Reports an event with both output streams joined.
void report_joined(const event& happened)
{
    test::join_output_with_errors();
    report(happened);
}

TEST(messages_death, a_failure_with_a_code_prints_a_named_line_and_ends_the_process)
{
    EXPECT_EXIT(report({.kind = event_kind::no_memory, .name = "a"}), test::ended_abnormally,
                "^quarnex: a: error 100: malloc error\n$");
    EXPECT_EXIT(report({.kind = event_kind::block_uncoded,
                        .name = "a",
                        .codec_error = codec_status::no_lists}),
                test::ended_abnormally, "^quarnex: a: error 100: malloc error\n$");
    EXPECT_EXIT(report({.kind = event_kind::destination_unwritten, .cause = ENOENT, .name = "a"}),
                test::ended_abnormally,
                "^quarnex: a: error 102: write error. errno=2 '" + no_such_file + "'\n$");
    EXPECT_EXIT(report({.kind = event_kind::header_short, .cause = ENOENT, .name = "a"}),
                test::ended_abnormally,
                "^quarnex: a: error 103: read error. errno=2 '" + no_such_file + "'\n$");
    EXPECT_EXIT(report({.kind = event_kind::corrupt, .name = "a"}), test::ended_abnormally,
                "^quarnex: a: error 105: file is corrupted\n$");
}

TEST(messages_death, standard_output_is_flushed_before_the_process_ends)
{
    EXPECT_EXIT(report_joined({.kind = event_kind::not_qrx, .name = "a"}), test::ended_abnormally,
                "^'a' not qrx file\nquarnex: a: error 104: file header. no quarnex format\n$");
    EXPECT_EXIT(report_joined({.kind = event_kind::payload_short,
                               .cause = ENOENT,
                               .name = "a",
                               .wanted = 100,
                               .got = 7}),
                test::ended_abnormally,
                "^err=" + no_such_file + ", 100,7 quarnex: a: error 103: read error. errno=2 '" +
                    no_such_file + "'\n$");
    EXPECT_EXIT(report_joined({.kind = event_kind::payload_short, .name = "a", .wanted = 1}),
                test::ended_abnormally, "^err=, 1,0 quarnex: a: error 103: ");
}

TEST(messages_death, too_many_destinations_end_the_process_with_status_minus_1)
{
    EXPECT_EXIT(
        report_joined(
            {.kind = event_kind::too_many_destinations, .name = "a", .wanted = 256, .got = 0x1A}),
        testing::ExitedWithCode(test::status_of_exit_minus_1),
        "^Fatal error file dscriptor > 256.fd=1a\na: too many files are open\n$");
}

} // namespace
} // namespace quarnex
