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
