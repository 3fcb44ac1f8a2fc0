#include "frontend/options.h"

#include "support/paths.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using words = std::vector<const char*>;

constexpr u32 processors = 4;

options parse_as(const std::string& argv0, const words& arguments,
                 u32 processor_number = processors)
{
    words argv{argv0.c_str()};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    return parse_options(static_cast<int>(argv.size()), argv.data(), processor_number);
}

options parse(const words& arguments)
{
    return parse_as("quarnex", arguments);
}

/// Parses a valid command line with `option` added.
options parse_option(const char* option)
{
    return parse({"-10", option, "in", "out"});
}

options parse_restore_option(const char* option)
{
    return parse({"-d", option, "in", "out"});
}

/// Parses "option in out".
file_parameters parameters_of(const char* method_option)
{
    return parse({method_option, "in", "out"}).job_template;
}

// Defaults

TEST(options_defaults, job_template_is_zero_but_for_block_size)
{
    const options parsed = parse({"-10", "in", "out"});
    EXPECT_EQ(parsed.fault, option_fault::none);
    EXPECT_EQ(parsed.mode, direction::compress);
    EXPECT_EQ(parsed.job_template.codec.method, 1);
    EXPECT_EQ(parsed.job_template.codec.level, 0);
    EXPECT_EQ(parsed.job_template.codec.lit_ctx_bits, 0);
    EXPECT_EQ(parsed.job_template.filter_flags, 0);
    EXPECT_EQ(parsed.job_template.block_mb, 32);
    EXPECT_EQ(parsed.job_template.codec.hash_bits, 0);
    EXPECT_EQ(parsed.job_template.codec.chain_bits, 0);
    EXPECT_EQ(parsed.thread_count, processors);
    EXPECT_EQ(parsed.verbose, 0);
    EXPECT_FALSE(parsed.recursive);
}

TEST(options_defaults, level_is_255_when_restoring)
{
    EXPECT_EQ(parse({"-d", "in", "out"}).job_template.codec.level, 255);
}

// Names

TEST(options_names, last_name_is_the_destination)
{
    const options parsed = parse({"-10", "a", "b", "c"});
    EXPECT_EQ(parsed.names, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(parsed.destination, "c");
}

TEST(options_names, options_can_come_between_and_after_names)
{
    const options parsed = parse({"a", "-p1", "b", "c", "-10"});
    EXPECT_EQ(parsed.fault, option_fault::none);
    EXPECT_EQ(parsed.names, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(parsed.destination, "c");
    EXPECT_EQ(parsed.thread_count, 1U);
}

TEST(options_names, an_empty_argument_is_a_name)
{
    const options parsed = parse({"-10", "", "out"});
    EXPECT_EQ(parsed.fault, option_fault::none);
    EXPECT_EQ(parsed.names, std::vector<std::string>{""});
}

TEST(options_names, fewer_than_two_print_usage)
{
    EXPECT_EQ(parse({}).fault, option_fault::usage);
    EXPECT_EQ(parse({"-10"}).fault, option_fault::usage);
    EXPECT_EQ(parse({"-10", "in"}).fault, option_fault::usage);
    EXPECT_EQ(parse({"-d"}).fault, option_fault::usage);
    EXPECT_EQ(parse({"-d", "in"}).fault, option_fault::usage);
    EXPECT_EQ(parse_as("unquarnex", {"in"}).fault, option_fault::usage);
}

TEST(options_names, an_empty_argument_list_prints_usage)
{
    EXPECT_EQ(parse_options(0, nullptr, processors).fault, option_fault::usage);
}

// "-ml"

TEST(options_method, without_a_level_selects_level_9)
{
    EXPECT_EQ(parameters_of("-5").codec.method, 5);
    EXPECT_EQ(parameters_of("-5").codec.level, 9);
}

TEST(options_method, each_method_and_level)
{
    for (char method = '1'; method <= '5'; ++method) {
        for (char level = '0'; level <= '9'; ++level) {
            const std::string option{'-', method, level};
            EXPECT_EQ(parameters_of(option.c_str()).codec.method, method - '0') << option;
            EXPECT_EQ(parameters_of(option.c_str()).codec.level, level - '0') << option;
        }
    }
}

TEST(options_method, an_x_after_the_level_has_no_effect)
{
    EXPECT_EQ(parameters_of("-53x").codec.method, 5);
    EXPECT_EQ(parameters_of("-53x").codec.level, 3);
    EXPECT_EQ(parse({"-10x", "in", "out"}).fault, option_fault::none);
}

TEST(options_method, anything_else_after_the_level_has_no_effect)
{
    EXPECT_EQ(parameters_of("-53abc").codec.method, 5);
    EXPECT_EQ(parameters_of("-53abc").codec.level, 3);
    EXPECT_EQ(parameters_of("-539").codec.level, 3);
    EXPECT_EQ(parse({"-10abc", "in", "out"}).fault, option_fault::none);
}

TEST(options_method, a_level_that_is_not_a_digit_is_unknown)
{
    for (const char* option : {"-5a", "-1x", "-1-", "-1 ", "-0z", "-9."}) {
        EXPECT_EQ(parse({option, "in", "out"}).fault, option_fault::unknown_level) << option;
    }
}

TEST(options_method, outside_1_to_5_prints_usage)
{
    for (const char* option : {"-0", "-00", "-6", "-63", "-7", "-8", "-9", "-99"}) {
        EXPECT_EQ(parse({option, "in", "out"}).fault, option_fault::usage) << option;
    }
}

TEST(options_method, there_is_no_default)
{
    EXPECT_EQ(parse({"in", "out"}).fault, option_fault::usage);
    EXPECT_EQ(parse({"-p0", "-b1", "in", "out"}).fault, option_fault::usage);
}

TEST(options_method, the_last_one_counts)
{
    const options parsed = parse({"-6", "-59", "-12", "in", "out"});
    EXPECT_EQ(parsed.fault, option_fault::none);
    EXPECT_EQ(parsed.job_template.codec.method, 1);
    EXPECT_EQ(parsed.job_template.codec.level, 2);
}

// "-D#"

TEST(options_hash_bits, is_the_number)
{
    EXPECT_EQ(parse_option("-D9").job_template.codec.hash_bits, 9);
    EXPECT_EQ(parse_option("-D10").job_template.codec.hash_bits, 10);
    EXPECT_EQ(parse_option("-D20x").job_template.codec.hash_bits, 20);
}

TEST(options_hash_bits, no_digits_mean_0)
{
    EXPECT_EQ(parse_option("-D").job_template.codec.hash_bits, 0);
    EXPECT_EQ(parse_option("-Dx").job_template.codec.hash_bits, 0);
    EXPECT_EQ(parse_option("-D").fault, option_fault::none);
}

TEST(options_hash_bits, can_be_negative)
{
    EXPECT_EQ(parse_option("-D-5").job_template.codec.hash_bits, -5);
    EXPECT_EQ(parse_option("-D-5").fault, option_fault::none);
}

TEST(options_hash_bits, at_most_30)
{
    EXPECT_EQ(parse_option("-D30").fault, option_fault::none);
    EXPECT_EQ(parse_option("-D30").job_template.codec.hash_bits, 30);
    for (const char* option : {"-D31", "-D32", "-D1000", "-D99999999999999999999"}) {
        EXPECT_EQ(parse_option(option).fault, option_fault::bad_value) << option;
        EXPECT_NE(parse_option(option).fault_text, "") << option;
    }
}

// "-b#"

TEST(options_block_size, is_the_number)
{
    EXPECT_EQ(parse_option("-b1").job_template.block_mb, 1);
    EXPECT_EQ(parse_option("-b64").job_template.block_mb, 64);
    EXPECT_EQ(parse_option("-b64").fault, option_fault::none);
}

TEST(options_block_size, is_truncated_to_16_bits)
{
    EXPECT_EQ(parse_option("-b65537").job_template.block_mb, 1);
    EXPECT_EQ(parse_option("-b65537").fault, option_fault::none);
    EXPECT_EQ(parse_option("-b131104").job_template.block_mb, 32);
    EXPECT_EQ(parse_option("-b-65535").job_template.block_mb, 1);
}

TEST(options_block_size, zero_is_rejected)
{
    for (const char* option : {"-b0", "-b", "-bx", "-b65536", "-b131072", "-b-65536"}) {
        EXPECT_EQ(parse_option(option).fault, option_fault::bad_value) << option;
        EXPECT_NE(parse_option(option).fault_text, "") << option;
    }
}

TEST(options_block_size, above_2047_is_rejected)
{
    EXPECT_EQ(parse_option("-b2047").fault, option_fault::none);
    for (const char* option : {"-b2048", "-b4096", "-b65535", "-b-1", "-b67584"}) {
        EXPECT_EQ(parse_option(option).fault, option_fault::bad_value) << option;
    }
}

TEST(options_block_size, is_at_most_16_at_levels_4_to_7)
{
    for (const char* method : {"-14", "-25", "-36", "-54", "-47"}) {
        EXPECT_EQ(parse({method, "-b64", "in", "out"}).job_template.block_mb, 16) << method;
        EXPECT_EQ(parse({"-b64", method, "in", "out"}).job_template.block_mb, 16) << method;
        EXPECT_EQ(parameters_of(method).block_mb, 16) << method;
    }
}

TEST(options_block_size, below_the_cap_of_levels_4_to_7_is_kept)
{
    EXPECT_EQ(parse({"-54", "-b16", "in", "out"}).job_template.block_mb, 16);
    EXPECT_EQ(parse({"-54", "-b15", "in", "out"}).job_template.block_mb, 15);
    EXPECT_EQ(parse({"-54", "-b1", "in", "out"}).job_template.block_mb, 1);
}

TEST(options_block_size, other_levels_have_no_cap)
{
    for (const char* method : {"-10", "-11", "-12", "-53", "-58", "-59", "-5"}) {
        EXPECT_EQ(parse({method, "-b64", "in", "out"}).job_template.block_mb, 64) << method;
    }
}

TEST(options_block_size, the_cap_of_levels_4_to_7_applies_to_any_value)
{
    const options parsed = parse({"-54", "-b4000", "in", "out"});
    EXPECT_NE(parsed.fault, option_fault::bad_value);
    EXPECT_EQ(parsed.job_template.block_mb, 16);
}

// "-p#"

TEST(options_threads, is_the_number)
{
    EXPECT_EQ(parse_option("-p0").thread_count, 0U);
    EXPECT_EQ(parse_option("-p1").thread_count, 1U);
    EXPECT_EQ(parse_option("-p4").thread_count, 4U);
}

TEST(options_threads, no_digits_mean_no_workers)
{
    EXPECT_EQ(parse_option("-p").thread_count, 0U);
    EXPECT_EQ(parse_restore_option("-p").thread_count, 0U);
}

TEST(options_threads, at_most_one_per_processor_when_compressing)
{
    EXPECT_EQ(parse_option("-p5").thread_count, processors);
    EXPECT_EQ(parse_option("-p99").thread_count, processors);
}

TEST(options_threads, are_not_limited_to_the_processors_after_dash_d)
{
    EXPECT_EQ(parse_restore_option("-p5").thread_count, 5U);
    EXPECT_EQ(parse_restore_option("-p15").thread_count, 15U);
}

TEST(options_threads, are_at_most_16)
{
    EXPECT_EQ(parse_restore_option("-p99").thread_count, 16U);
    EXPECT_EQ(parse_as("quarnex", {"-10", "-p99", "in", "out"}, 64).thread_count, 16U);
    EXPECT_EQ(parse_as("quarnex", {"-10", "in", "out"}, 64).thread_count, 16U);
    EXPECT_EQ(parse_as("quarnex", {"-d", "in", "out"}, 64).thread_count, 16U);
}

TEST(options_threads, a_negative_number_counts_as_a_very_large_one)
{
    EXPECT_EQ(parse_option("-p-1").thread_count, processors);
    EXPECT_EQ(parse_restore_option("-p-1").thread_count, 16U);
}

TEST(options_threads, are_limited_to_the_processors_for_unquarnex)
{
    EXPECT_EQ(parse_as("unquarnex", {"-p99", "in", "out"}).thread_count, processors);
}

// "-h", "-r", "-v" and unknown options

TEST(options_flags, help_prints_usage)
{
    EXPECT_EQ(parse({"-h"}).fault, option_fault::usage);
    EXPECT_EQ(parse_option("-h").fault, option_fault::usage);
    EXPECT_EQ(parse_option("-help").fault, option_fault::usage);
}

TEST(options_flags, verbose_counts)
{
    EXPECT_EQ(parse({"-10", "-v", "in", "-v", "out"}).verbose, 2);
    EXPECT_EQ(parse({"-d", "-v", "in", "-v", "out", "-vv"}).verbose, 3);
}

TEST(options_flags, recursive)
{
    for (const options& parsed : {parse_option("-r"), parse_restore_option("-r")}) {
        EXPECT_TRUE(parsed.recursive);
        EXPECT_EQ(parsed.fault, option_fault::none);
    }
    EXPECT_FALSE(parse_restore_option("-v").recursive);
}

TEST(options_flags, an_unknown_option_is_reported_in_full)
{
    for (const char* option : {"-q", "-qwerty", "--help", "-U", "-B1", "-P0", "-x1"}) {
        const options parsed = parse_option(option);
        EXPECT_EQ(parsed.fault, option_fault::unknown_option) << option;
        EXPECT_EQ(parsed.fault_text, option);
    }
}

TEST(options_flags, a_dash_alone_is_unknown)
{
    EXPECT_EQ(parse_option("-").fault, option_fault::unknown_option);
    EXPECT_EQ(parse_option("-").fault_text, "-");
}

TEST(options_flags, parsing_stops_at_the_first_fault)
{
    EXPECT_EQ(parse({"-q", "-5a", "-h"}).fault, option_fault::unknown_option);
    EXPECT_EQ(parse({"-5a", "-q", "-h"}).fault, option_fault::unknown_level);
    EXPECT_EQ(parse({"-h", "-q", "-5a"}).fault, option_fault::usage);
    EXPECT_EQ(parse({"-b0", "-q", "in", "out"}).fault, option_fault::unknown_option);
}

// "-d" and the program's name

TEST(options_mode, a_first_argument_of_dash_d_restores)
{
    const options parsed = parse({"-d", "a", "b", "out"});
    EXPECT_EQ(parsed.fault, option_fault::none);
    EXPECT_EQ(parsed.mode, direction::decompress);
    EXPECT_EQ(parsed.names, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(parsed.destination, "out");
}

TEST(options_mode, a_dash_d_that_is_not_first_is_unknown)
{
    const options parsed = parse({"in", "-d", "out"});
    EXPECT_EQ(parsed.fault, option_fault::unknown_option);
    EXPECT_EQ(parsed.fault_text, "-d");
    EXPECT_EQ(parse({"-10", "-d", "in", "out"}).fault, option_fault::unknown_option);
}

TEST(options_mode, the_first_argument_must_be_dash_d_exactly)
{
    EXPECT_EQ(parse({"-dx", "in", "out"}).fault, option_fault::unknown_option);
    EXPECT_EQ(parse({"-d1", "in", "out"}).fault_text, "-d1");
}

TEST(options_mode, unknown_options_after_dash_d_are_ignored)
{
    const options parsed = parse(
        {"-d", "-U", "-d", "-q", "-5a", "-6", "-b0", "-D99", "-h", "-", "--", "-dx", "in", "out"});
    EXPECT_EQ(parsed.fault, option_fault::none);
    EXPECT_EQ(parsed.mode, direction::decompress);
    EXPECT_EQ(parsed.names, std::vector<std::string>{"in"});
    EXPECT_EQ(parsed.job_template.codec.method, 0);
}

TEST(options_mode, the_name_unquarnex_restores)
{
    for (const char* name :
         {"unquarnex", "/usr/bin/unquarnex", "./unquarnex.exe", "myunquarnex2"}) {
        const options parsed = parse_as(test::native(name), {"in", "out"});
        EXPECT_EQ(parsed.fault, option_fault::none) << name;
        EXPECT_EQ(parsed.mode, direction::decompress) << name;
    }
}

TEST(options_mode, only_the_name_after_the_path_counts)
{
    const options parsed = parse_as(test::native("/opt/unquarnex/quarnex"), {"-10", "in", "out"});
    EXPECT_EQ(parsed.mode, direction::compress);
    EXPECT_EQ(parse_as("UNQUARNEX", {"-10", "in", "out"}).mode, direction::compress);
}

TEST(options_mode, unquarnex_reads_the_compression_options)
{
    EXPECT_EQ(parse_as("unquarnex", {"-U", "in", "out"}).fault, option_fault::unknown_option);
    EXPECT_EQ(parse_as("unquarnex", {"-5a", "in", "out"}).fault, option_fault::unknown_level);
    EXPECT_EQ(parse_as("unquarnex", {"-h", "in", "out"}).fault, option_fault::usage);
    const options parsed = parse_as("unquarnex", {"-69", "-b0", "-D99", "in", "out"});
    EXPECT_EQ(parsed.fault, option_fault::none); // a method is not required
    EXPECT_EQ(parsed.mode, direction::decompress);
}

TEST(options_mode, unquarnex_with_dash_d_reads_the_decompression_options)
{
    const options parsed = parse_as("unquarnex", {"-d", "-U", "-p9", "in", "out"});
    EXPECT_EQ(parsed.fault, option_fault::none);
    EXPECT_EQ(parsed.mode, direction::decompress);
    EXPECT_EQ(parsed.thread_count, 9U);
}

TEST(tool_name, is_the_part_after_the_last_separator)
{
    EXPECT_EQ(tool_name("quarnex"), "quarnex");
    EXPECT_EQ(tool_name(test::native("/usr/bin/quarnex").c_str()), "quarnex");
    EXPECT_EQ(tool_name(test::native("../quarnex-0.94").c_str()), "quarnex-0.94");
    EXPECT_EQ(tool_name(test::native("dir/").c_str()), "");
    EXPECT_EQ(tool_name(""), "");
}

} // namespace
} // namespace quarnex
