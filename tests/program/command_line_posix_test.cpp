#include "program/command_line_fixture.h"
#include "support/limits.h"

namespace quarnex::test {
namespace {

TEST_F(destination, that_is_a_dangling_link_fails_only_when_used)
{
    std::filesystem::create_symlink("nowhere", dir / "out");
    const program_result result = run({"-10", "good", "out"});
    EXPECT_EQ(result.err, "creat error 'out/good.qrx' 'No such file or directory'\n");
    EXPECT_EQ(result.status, 255);
}

TEST_F(plain_names, a_file_that_is_its_own_destination_is_skipped)
{
    std::filesystem::create_directory(dir / "out");
    std::filesystem::create_symlink("../good", dir / "out/good.qrx");
    const program_result compressing = run({"-10", "good", "out"});
    EXPECT_EQ(compressing.err, "good: skipped, it is its own destination\n");
    EXPECT_EQ(compressing.status, 0);
    EXPECT_EQ(get("good"), data);

    std::filesystem::remove(dir / "out/good.qrx");
    run({"-10", "good", "out"});
    std::filesystem::create_hard_link(dir / "out/good.qrx", dir / "out/good");
    const bytes packed = get("out/good.qrx");
    const program_result restoring = run({"-d", "out/good.qrx", "out"});
    EXPECT_EQ(restoring.err, "out/good.qrx: skipped, it is its own destination\n");
    EXPECT_EQ(restoring.status, 0);
    EXPECT_EQ(get("out/good.qrx"), packed);
}

TEST_F(plain_names, many_files_need_few_open_streams)
{
    if (under_sanitizer) settings.timeout_seconds = 120;
    std::vector<std::string> names;
    for (int i = 0; i < 300; ++i) {
        names.push_back(std::to_string(i));
        put(names.back(), random_data(static_cast<usize>(i % 3)));
    }
    settings.before_exec = limit(RLIMIT_NOFILE, 60);
    for (const char* threads : {"-p0", "-p2"}) {
        std::vector<std::string> compress{"-10", threads};
        std::vector<std::string> restore{"-d", threads};
        for (const std::string& name : names) {
            compress.push_back(name);
            restore.push_back("out/" + name + ".qrx");
        }
        compress.emplace_back("out");
        restore.emplace_back("restored");
        expect_silent_success(run(compress));
        expect_silent_success(run(restore));
        for (const std::string& name : names) EXPECT_EQ(get("restored/" + name), get(name));
        std::filesystem::remove_all(dir / "restored");
    }
}

} // namespace
} // namespace quarnex::test
