#include "frontend/system.h"

#include "frontend/file_lookup.h"
#include "support/scoped_limits.h"
#include "support/temp_dir.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <unistd.h>

namespace quarnex {
namespace {

using test::identity_of;
using test::kind_of;
using test::temp_dir;

TEST(frontend_system, find_status_follows_links)
{
    const temp_dir dir;
    std::filesystem::create_symlink(dir.path(), dir / "link");
    std::filesystem::create_symlink(dir / "nothing", dir / "broken");
    EXPECT_EQ(kind_of(dir / "link"), file_kind::directory);
    EXPECT_EQ(kind_of(dir / "broken"), std::nullopt);
}

TEST(frontend_system, find_status_sets_errno_on_failure)
{
    const temp_dir dir;
    test::write_file(dir / "file", {});
    errno = 0;
    EXPECT_FALSE(find_status((dir / "missing").c_str()));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(find_status((dir / "file/").c_str()));
    EXPECT_EQ(errno, ENOTDIR);
}

TEST(frontend_system, an_identity_is_the_same_for_all_names_of_a_file)
{
    const temp_dir dir;
    test::write_file(dir / "file", {});
    std::filesystem::create_symlink("file", dir / "link");
    std::filesystem::create_hard_link(dir / "file", dir / "second");
    EXPECT_EQ(identity_of(dir / "link"), identity_of(dir / "file"));
    EXPECT_EQ(identity_of(dir / "second"), identity_of(dir / "file"));
    EXPECT_EQ(identity_of(dir / "./"), identity_of(dir.path()));
}

TEST(frontend_system, is_link_does_not_follow_links)
{
    const temp_dir dir;
    test::write_file(dir / "file", {});
    std::filesystem::create_symlink("file", dir / "link");
    std::filesystem::create_symlink("nothing", dir / "broken");
    EXPECT_TRUE(is_link((dir / "link").c_str()));
    EXPECT_TRUE(is_link((dir / "broken").c_str()));
    EXPECT_FALSE(is_link((dir / "file").c_str()));
    EXPECT_FALSE(is_link(dir.path().c_str()));
    EXPECT_FALSE(is_link((dir / "missing").c_str()));
}

TEST(frontend_system, list_directory_returns_all_names)
{
    const temp_dir dir;
    std::set<std::string> names{".hidden", "...", "with space", "\xff"};
    for (int i = 0; i < 2000; ++i) names.insert(std::to_string(i));
    for (const std::string& name : names) test::write_file(dir / name, {});
    std::filesystem::create_directory(dir / "folder");
    std::filesystem::create_symlink("nothing", dir / "broken");
    names.insert({"folder", "broken"});

    const std::vector<std::string> found = list_directory(dir.path().c_str());
    EXPECT_EQ(found.size(), names.size());
    EXPECT_EQ(std::set<std::string>(found.begin(), found.end()), names);
}

TEST(frontend_system, an_open_file_has_the_identity_of_its_name)
{
    const temp_dir dir;
    test::write_file(dir / "file", {});
    const int descriptor = open((dir / "file").c_str(), O_RDONLY);
    EXPECT_EQ(find_identity(descriptor), find_status((dir / "file").c_str())->identity);
    close(descriptor);
    const file_identity none = find_identity(descriptor);
    EXPECT_NE(none, none) << "not even itself";
}

[[noreturn]] void write_beyond_the_file_size_limit()
{
    const temp_dir dir;
    prepare_process();
    std::FILE* const stream = std::fopen((dir / "file").c_str(), "wb");
    std::setvbuf(stream, nullptr, _IONBF, 0);
    usize written = 0;
    {
        const test::process_limit limit(RLIMIT_FSIZE, 10);
        written = std::fwrite("twelve bytes", 1, 12, stream);
    }
    std::fprintf(stderr, "%zu %s", written, std::strerror(errno));
    std::filesystem::remove_all(dir.path());
    std::_Exit(0);
}

TEST(frontend_system_death, a_write_beyond_the_file_size_limit_is_an_ordinary_error)
{
    EXPECT_EXIT(write_beyond_the_file_size_limit(), testing::ExitedWithCode(0),
                "^10 File too large$");
}

[[noreturn]] void open_a_file_with_closed_streams()
{
    const int errors = dup(STDERR_FILENO);
    for (const int closed : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) close(closed);
    prepare_process();
    const int opened = open("/dev/null", O_RDONLY);
    dprintf(errors, "opened %s", opened > STDERR_FILENO ? "above them" : "in their place");
    std::_Exit(0);
}

TEST(frontend_system_death, closed_standard_streams_are_opened)
{
    EXPECT_EXIT(open_a_file_with_closed_streams(), testing::ExitedWithCode(0),
                "^opened above them$");
}

} // namespace
} // namespace quarnex
