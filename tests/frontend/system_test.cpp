#include "frontend/system.h"

#include "frontend/file_lookup.h"
#include "support/process_entries.h"
#include "support/system_differences.h"
#include "support/temp_dir.h"

#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

namespace quarnex {
namespace {

using test::identity_of;
using test::kind_of;
using test::temp_dir;

TEST(frontend_system, find_status_distinguishes_files_directories_and_others)
{
    const temp_dir dir;
    test::write_file(dir / "file", {});
    EXPECT_EQ(kind_of(dir / "file"), file_kind::regular);
    EXPECT_EQ(kind_of(dir.path()), file_kind::directory);
    EXPECT_EQ(kind_of(test::null_device), file_kind::other);
}

TEST(frontend_system, identities_of_different_files_differ)
{
    const temp_dir dir;
    test::write_file(dir / "file", {});
    test::write_file(dir / "other", {});
    EXPECT_NE(identity_of(dir / "file"), identity_of(dir / "other"));
    EXPECT_NE(identity_of(dir.path()), identity_of(dir / ".."));
    // The root directories of many file systems have the same number.
    const file_identity here{1, 2};
    EXPECT_NE(here, (file_identity{2, 2}));
    EXPECT_NE(here, (file_identity{1, 1}));
    // An identity without a number equals no other, not even itself.
    EXPECT_NE((file_identity{1, 0}), (file_identity{1, 0}));
}

TEST(frontend_system, list_directory_returns_no_names_for_an_unreadable_directory)
{
    const temp_dir dir;
    test::write_file(dir / "file", {});
    EXPECT_TRUE(list_directory((dir / "file").c_str()).empty());
    EXPECT_TRUE(list_directory((dir / "missing").c_str()).empty());
    std::filesystem::create_directory(dir / "empty");
    EXPECT_TRUE(list_directory((dir / "empty").c_str()).empty());
}

TEST(frontend_system, list_directory_leaves_no_descriptor_open)
{
    const temp_dir dir;
    const usize before = test::open_descriptors();
    list_directory(dir.path().c_str());
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST(frontend_system, make_directory_creates_no_parents)
{
    const temp_dir dir;
    EXPECT_TRUE(make_directory((dir / "new").c_str()));
    EXPECT_EQ(kind_of(dir / "new"), file_kind::directory);
    errno = 0;
    EXPECT_FALSE(make_directory((dir / "new").c_str()));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_FALSE(make_directory((dir / "missing/new").c_str()));
    EXPECT_EQ(errno, ENOENT);
}

} // namespace
} // namespace quarnex
