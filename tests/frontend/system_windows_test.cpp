#include "frontend/system.h"

#include "frontend/file_lookup.h"
#include "support/exclusive_file.h"
#include "support/temp_dir.h"

#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#include <set>
#include <string>

namespace quarnex {
namespace {

using test::identity_of;
using test::kind_of;
using test::temp_dir;

TEST(frontend_system, find_status_fails_for_names_without_a_file)
{
    const temp_dir dir;
    test::write_file(dir / "file", {});
    for (const char* const name : {"missing", "file\\", "missing\\file", "*"}) {
        errno = 0;
        EXPECT_FALSE(find_status((dir / name).c_str())) << name;
        EXPECT_EQ(errno, ENOENT) << name;
    }
}

TEST(frontend_system, find_status_finds_the_root_and_the_working_directory_of_a_drive)
{
    const std::string drive = std::filesystem::current_path().root_name().string();
    EXPECT_EQ(kind_of(drive + "\\"), file_kind::directory);
    EXPECT_EQ(kind_of(drive), file_kind::directory);
    EXPECT_EQ(identity_of(drive), identity_of("."));
}

TEST(frontend_system, find_status_finds_a_file_opened_exclusively_by_another_process)
{
    const temp_dir dir;
    test::write_file(dir / "file", {});
    const test::exclusive_file held(dir / "file");
    EXPECT_EQ(kind_of(dir / "file"), file_kind::regular);
}

TEST(frontend_system, a_device_is_of_kind_other_in_every_directory_and_case)
{
    const temp_dir dir;
    for (const std::string& name : {std::string("nul"), dir / "NUL"})
        EXPECT_EQ(kind_of(name), file_kind::other) << name;
}

TEST(frontend_system, an_identity_is_the_same_for_all_spellings_of_a_name)
{
    const temp_dir dir;
    test::write_file(dir / "file", {});
    std::filesystem::create_hard_link(dir / "file", dir / "second");
    const file_identity file = identity_of(dir / "file");
    for (const char* const name : {"FILE", "File", ".\\file", "./file", "second"})
        EXPECT_EQ(identity_of(dir / name), file) << name;
    EXPECT_EQ(identity_of(dir / ".\\"), identity_of(dir.path()));
}

TEST(frontend_system, files_directories_and_missing_names_are_not_links)
{
    const temp_dir dir;
    test::write_file(dir / "file", {});
    EXPECT_FALSE(is_link((dir / "file").c_str()));
    EXPECT_FALSE(is_link(dir.path().c_str()));
    EXPECT_FALSE(is_link((dir / "missing").c_str()));
}

TEST(frontend_system, list_directory_returns_all_names_as_spelled)
{
    const temp_dir dir;
    std::set<std::string> names{".hidden", "with space", "Capitals", "a+[1]"};
    for (int i = 0; i < 2000; ++i) names.insert(std::to_string(i));
    for (const std::string& name : names) test::write_file(dir / name, {});
    std::filesystem::create_directory(dir / "folder");
    names.insert("folder");

    for (const std::string& directory : {dir.path(), dir / "", dir / ".\\"}) {
        const std::vector<std::string> found = list_directory(directory.c_str());
        EXPECT_EQ(found.size(), names.size());
        EXPECT_EQ(std::set<std::string>(found.begin(), found.end()), names);
    }
}

TEST(frontend_system, creating_the_root_of_a_drive_fails_with_eexist)
{
    errno = 0;
    EXPECT_FALSE(make_directory("C:\\"));
    EXPECT_EQ(errno, EEXIST);
}

TEST(frontend_system, creating_a_server_or_a_device_prefix_fails_with_eexist)
{
    for (const char* const name : {"\\\\nowhere", "\\\\?"}) {
        errno = 0;
        EXPECT_FALSE(make_directory(name)) << name;
        EXPECT_EQ(errno, EEXIST) << name;
    }
    errno = 0;
    EXPECT_FALSE(make_directory("missing\\below"));
    EXPECT_EQ(errno, ENOENT);
}

} // namespace
} // namespace quarnex
