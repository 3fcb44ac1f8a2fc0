// Tests the program's messages about its command line and its handling of the names in it.
#include "program/command_line_fixture.h"

#include <filesystem>

namespace quarnex::test {
namespace {

const std::string usage_after_banner =
    "\n Usage: quarnex <options> <filename1> .. <filenameN> DESTINATION_DIR\n"
    "<options>\n"
    " -ml     m: compression method (1..5), l:compression level (0..9).\n"
    " -p#     #: number of processors/cores (default=autodetect). 0=disable multithreading\n"
    " -b#     #: block size in mb (default 32)\n"
    " -r      compress/decompress directories recursively\n"
    " -d      decompress\n"
    "Ex.: quarnex -43 file.jpg ab*.txt backup_dir\n"
    "     quarnex -59 -r mydir/* backup_dir\n"
    "     quarnex -d -r backup_dir/* restore_dir\n";

void expect_usage(const program_result& result, const std::string& text = usage_after_banner)
{
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    const usize second_line = result.err.find('\n', 1);
    ASSERT_NE(second_line, std::string::npos) << result.err;
    const std::string banner = result.err.substr(0, second_line + 1);
    const std::string pattern("\n[a-z]+ 0\\.94 (Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) "
                              "[ 0-9][0-9] 20[0-9][0-9]\n");
    EXPECT_TRUE(matches(banner, pattern)) << banner;
    EXPECT_EQ(result.err.substr(banner.size()), text);
}

TEST_F(command_line, no_options_at_all_print_usage)
{
    expect_usage(run({}));
}

TEST_F(command_line, help_prints_usage)
{
    expect_usage(run({"-h"}));
    expect_usage(run({"-10", "good", "out", "-h"}));
    EXPECT_FALSE(exists("out"));
}

TEST_F(command_line, names_without_a_method_print_usage)
{
    expect_usage(run({"good", "out"}));
    expect_usage(run({"-63", "good", "out"}));
    EXPECT_FALSE(exists("out"));
}

TEST_F(command_line, a_single_name_prints_usage)
{
    expect_usage(run({"-10", "good"}));
    expect_usage(run({"-d", "good"}));
}

TEST_F(command_line, usage_shows_the_name_of_the_tool_without_its_path)
{
    settings.argv0 = "/some/where/packer";
    std::string text = usage_after_banner;
    text.replace(text.find("quarnex"), 7, "packer");
    const program_result result = run({"-h"});
    expect_usage(result, text);
    EXPECT_EQ(result.err.substr(0, 13), "\npacker 0.94 ");
}

TEST_F(command_line, unknown_option)
{
    const program_result result = run({"-10", "-qwe", "good", "out"});
    EXPECT_EQ(result.out, "\n Unknown option '-qwe'\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 1);
    EXPECT_FALSE(exists("out"));
}

TEST_F(command_line, a_dash_d_that_is_not_first_is_an_unknown_option)
{
    const program_result result = run({"-p0", "-d", "good", "out"});
    EXPECT_EQ(result.out, "\n Unknown option '-d'\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(command_line, a_dash_alone_is_an_unknown_option)
{
    EXPECT_EQ(run({"-10", "-", "good", "out"}).out, "\n Unknown option '-'\n");
}

TEST_F(command_line, a_level_that_is_not_a_digit_ends_the_process)
{
    const program_result result = run({"-5a", "good", "out"});
    EXPECT_EQ(result.out, "uknown level\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, status_of_abnormal_end);
    EXPECT_FALSE(exists("out"));
}

TEST_F(command_line, values_out_of_range_are_reported_in_one_line)
{
    for (const char* option : {"-b0", "-b65536", "-b2048", "-D31"}) {
        const program_result result = run({"-10", option, "good", "out"});
        EXPECT_EQ(result.status, 1) << option;
        EXPECT_EQ(result.out, "") << option;
        EXPECT_TRUE(matches(result.err, "quarnex: [^\n]+\n")) << result.err;
        EXPECT_FALSE(exists("out")) << option;
    }
}

TEST_F(command_line, a_method_without_a_level_selects_level_9)
{
    expect_silent_success(run({"-5", "-p0", "good", "out"}));
    expect_silent_success(run({"-59", "-p0", "good", "plain"}));
    EXPECT_EQ(get("out/good.qrx"), get("plain/good.qrx"));
}

TEST_F(command_line, an_x_after_the_level_changes_nothing)
{
    expect_silent_success(run({"-12x", "-p0", "good", "out"}));
    expect_silent_success(run({"-12", "-p0", "good", "plain"}));
    EXPECT_EQ(get("out/good.qrx"), get("plain/good.qrx"));
}

TEST_F(command_line, verbose_prints_nothing_for_plain_names)
{
    expect_silent_success(run({"-10", "-v", "-v", "good", "out"}));
    expect_silent_success(run({"-d", "-v", "out/good.qrx", "restored"}));
    EXPECT_EQ(get("restored/good"), data);
}

TEST_F(command_line, the_name_unquarnex_restores)
{
    run({"-10", "good", "out"});
    settings.argv0 = "/usr/bin/unquarnex";
    expect_silent_success(run({"out/good.qrx", "restored"}));
    EXPECT_EQ(get("restored/good"), data);
}

TEST_F(command_line, the_name_unquarnex_reads_the_compression_options)
{
    run({"-10", "good", "out"});
    settings.argv0 = "unquarnex";
    EXPECT_EQ(run({"-U", "out/good.qrx", "restored"}).out, "\n Unknown option '-U'\n");
    expect_silent_success(run({"-p0", "-59", "out/good.qrx", "restored"}));
    EXPECT_EQ(get("restored/good"), data);
}

TEST_F(command_line, unknown_options_after_dash_d_are_ignored)
{
    run({"-10", "good", "out"});
    expect_silent_success(run({"-d", "-U", "-d", "-5a", "-", "-h", "out/good.qrx", "restored"}));
    EXPECT_EQ(get("restored/good"), data);
}

// The destination

TEST_F(destination, that_is_missing_is_created)
{
    expect_silent_success(run({"-10", "good", "out"}));
    EXPECT_TRUE(std::filesystem::is_directory(dir / "out"));
    EXPECT_TRUE(is_compressed("out/good.qrx"));
}

TEST_F(destination, is_created_without_missing_parents)
{
    const program_result result = run({"-10", "good", "far/out"});
    EXPECT_EQ(result.err, "cannot create directory 'far/out'\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 255);
    EXPECT_FALSE(exists("far"));
}

TEST_F(destination, below_a_file_cannot_be_created)
{
    const program_result result = run({"-10", "good", "good/out"});
    EXPECT_EQ(result.err, "cannot create directory 'good/out'\n");
    EXPECT_EQ(result.status, 255);
}

TEST_F(destination, without_a_name_cannot_be_created)
{
    EXPECT_EQ(run({"-10", "good", ""}).err, "cannot create directory ''\n");
}

TEST_F(destination, that_exists_is_used)
{
    std::filesystem::create_directory(dir / "out");
    expect_silent_success(run({"-10", "good", "out"}));
    EXPECT_TRUE(is_compressed("out/good.qrx"));
}

TEST_F(destination, that_is_a_file_is_rejected)
{
    put("out", data);
    for (const char* mode : {"-10", "-d"}) {
        const program_result result = run({mode, "good", "out"});
        EXPECT_EQ(result.out, "destination is not a directory\n");
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 255);
    }
    EXPECT_EQ(get("out"), data);
}

TEST_F(destination, with_a_trailing_separator)
{
    expect_silent_success(run({"-10", "good", "out/"}));
    EXPECT_TRUE(is_compressed("out/good.qrx"));
    // The message shows that the path has one separator.
    std::filesystem::create_directory(dir / "out/twice.qrx");
    put("twice", data);
    EXPECT_EQ(run({"-10", "twice", "out/"}).err,
              "creat error 'out/twice.qrx' '" + is_a_directory + "'\n");
}

TEST_F(destination, is_created_even_if_no_file_is_written)
{
    EXPECT_EQ(run({"-10", "missing", "out"}).status, 0);
    EXPECT_TRUE(std::filesystem::is_empty(dir / "out"));
}

// Plain names

TEST_F(plain_names, are_all_processed_and_kept)
{
    expect_silent_success(run({"-10", "good", "other", "out"}));
    EXPECT_TRUE(is_compressed("out/good.qrx"));
    EXPECT_TRUE(is_compressed("out/other.qrx"));
    EXPECT_EQ(get("good"), data);
}

TEST_F(plain_names, lose_their_path)
{
    std::filesystem::create_directories(dir / "a/b");
    put("a/b/deep.bin", data);
    expect_silent_success(run({"-10", "a/b/deep.bin", dir / "good", "out"}));
    EXPECT_TRUE(is_compressed("out/deep.bin.qrx"));
    EXPECT_TRUE(is_compressed("out/good.qrx"));
}

TEST_F(plain_names, a_missing_first_name_is_reported_and_skipped)
{
    const program_result result = run({"-10", "missing", "good", "out"});
    EXPECT_EQ(result.err, "can't open input file 'missing'. 'No such file or directory'\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_FALSE(exists("out/missing.qrx"));
    EXPECT_TRUE(is_compressed("out/good.qrx"));
}

TEST_F(plain_names, a_missing_name_after_a_file_is_reported_and_ends_the_loop)
{
    const program_result result = run({"-10", "good", "missing", "other", "out"});
    EXPECT_EQ(result.err, "can't open input file 'missing'. 'No such file or directory'\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(is_compressed("out/good.qrx"));
    EXPECT_FALSE(exists("out/missing.qrx"));
    EXPECT_FALSE(exists("out/other.qrx"));
}

TEST_F(plain_names, a_missing_name_after_a_file_ends_the_loop_when_restoring)
{
    run({"-10", "good", "other", "out"});
    const program_result result =
        run({"-d", "out/good.qrx", "out/missing.qrx", "out/other.qrx", "restored"});
    EXPECT_EQ(result.err, "can't open input file 'out/missing.qrx'. 'No such file or directory'\n");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(get("restored/good"), data);
    EXPECT_FALSE(exists("restored/missing"));
    EXPECT_FALSE(exists("restored/other"));
}

TEST_F(plain_names, a_missing_name_after_a_directory_is_reported_and_skipped)
{
    std::filesystem::create_directory(dir / "folder");
    const program_result result = run({"-10", "good", "folder", "missing", "other", "out"});
    EXPECT_EQ(result.err, "can't open input file 'missing'. 'No such file or directory'\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(is_compressed("out/other.qrx"));
}

TEST_F(plain_names, a_missing_name_with_the_suffix_after_a_file_is_skipped)
{
    expect_silent_success(run({"-10", "good", "missing.qrx", "other", "out"}));
    EXPECT_TRUE(is_compressed("out/other.qrx"));
}

TEST_F(plain_names, a_directory_is_not_an_error)
{
    std::filesystem::create_directory(dir / "folder");
    put("folder/inside", data);
    expect_silent_success(run({"-10", "folder", "good", "out"}));
    EXPECT_FALSE(exists("out/folder.qrx"));
    EXPECT_FALSE(exists("out/inside.qrx"));
    EXPECT_TRUE(is_compressed("out/good.qrx"));
}

TEST_F(plain_names, anything_but_a_regular_file_is_skipped)
{
    expect_silent_success(run({"-10", null_device, "good", "out"}));
    EXPECT_EQ(names_below(dir / "out"), std::vector<std::string>{"good.qrx"});
    EXPECT_TRUE(is_compressed("out/good.qrx"));
}

TEST_F(plain_names, with_the_suffix_in_any_case_are_skipped_silently)
{
    for (const char* name : {"a.qrx", "b.QRX", "c.QrX", ".qrx"}) put(name, data);
    expect_silent_success(run({"-10", "a.qrx", "b.QRX", "c.QrX", ".qrx", "good", "out"}));
    const std::filesystem::directory_iterator outputs(dir / "out");
    EXPECT_EQ(std::distance(begin(outputs), end(outputs)), 1);
    EXPECT_TRUE(is_compressed("out/good.qrx"));
}

TEST_F(plain_names, that_only_look_like_compressed_files_are_compressed)
{
    for (const char* name : {"qrx", "a.qrx2", "aqrx"}) {
        put(name, data);
        expect_silent_success(run({"-10", name, "out"}));
        EXPECT_TRUE(is_compressed(std::string("out/") + name + ".qrx")) << name;
    }
}

TEST_F(plain_names, existing_outputs_are_replaced_silently)
{
    std::filesystem::create_directory(dir / "out");
    put("out/good.qrx", random_data(5000, 2));
    expect_silent_success(run({"-10", "good", "out"}));
    EXPECT_TRUE(is_compressed("out/good.qrx"));
    put("good", random_data(5000, 2));
    expect_silent_success(run({"-d", "out/good.qrx", "."}));
    EXPECT_EQ(get("good"), data);
}

TEST_F(plain_names, restoring_strips_the_suffix_in_any_case_mix)
{
    run({"-10", "good", "out"});
    for (const char* suffix : {".qrx", ".QRX", ".qRx", ".Qrx"}) {
        put(std::string("moved") + suffix, get("out/good.qrx"));
        expect_silent_success(run({"-d", std::string("moved") + suffix, "restored"}));
        EXPECT_EQ(get("restored/moved"), data) << suffix;
        std::filesystem::remove(dir / "restored/moved");
    }
}

TEST_F(plain_names, restoring_another_name_appends_out)
{
    run({"-10", "good", "out"});
    for (const char* name : {"moved", "moved.qr", "moved.qrx.bak", "qrx"}) {
        put(name, get("out/good.qrx"));
        expect_silent_success(run({"-d", name, "restored"}));
        EXPECT_EQ(get(std::string("restored/") + name + ".out"), data) << name;
    }
}

} // namespace
} // namespace quarnex::test
