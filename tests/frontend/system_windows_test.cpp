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

TEST(frontend_system, find_status_tells_a_name_that_stands_for_nothing)
{
    const temp_dir dir;
    test::write_file(dir / "file", {});
    for (const char* const name : {"missing", "file\\", "missing\\file", "*"}) {
        errno = 0;
        EXPECT_FALSE(find_status((dir / name).c_str())) << name;
        EXPECT_EQ(errno, ENOENT) << name;
    }
}

TEST(frontend_system, find_status_knows_the_root_of_a_drive_and_the_directory_that_is_current_on_it)
{
    const std::string drive = std::filesystem::current_path().root_name().string();
    EXPECT_EQ(kind_of(drive + "\\"), file_kind::directory);
    EXPECT_EQ(kind_of(drive), file_kind::directory);
    EXPECT_EQ(identity_of(drive), identity_of("."));
}

TEST(frontend_system, find_status_sees_a_file_that_another_has_for_itself)
{
    const temp_dir dir;
    test::write_file(dir / "file", {});
    const test::exclusive_file held(dir / "file");
    EXPECT_EQ(kind_of(dir / "file"), file_kind::regular);
}

TEST(frontend_system, a_device_is_other_in_every_directory_and_in_any_case)
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

TEST(frontend_system, what_is_there_is_no_link)
{
    const temp_dir dir;
    test::write_file(dir / "file", {});
    EXPECT_FALSE(is_link((dir / "file").c_str()));
    EXPECT_FALSE(is_link(dir.path().c_str()));
    EXPECT_FALSE(is_link((dir / "missing").c_str()));
}

TEST(frontend_system, list_directory_gives_all_names_as_they_were_spelled)
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

TEST(frontend_system, the_root_of_a_drive_cannot_be_made_as_it_exists)
{
    errno = 0;
    EXPECT_FALSE(make_directory("C:\\"));
    EXPECT_EQ(errno, EEXIST);
}

TEST(frontend_system,
     a_server_and_a_device_prefix_cannot_be_made_as_they_stand_in_front_of_directories)
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
