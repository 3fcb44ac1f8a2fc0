#include "common/platform.h"

#include "support/process_entries.h"
#include "support/scoped_limits.h"
#include "support/temp_dir.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <optional>
#include <set>
#include <string>
#include <thread>

namespace quarnex {
namespace {

using test::temp_dir;

struct close_stream {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using open_stream = std::unique_ptr<std::FILE, close_stream>;

open_stream open(const std::string& name, const char* mode)
{
    open_stream stream(std::fopen(name.c_str(), mode));
    if (!stream) std::abort();
    return stream;
}

constexpr u64 beyond_32_bits = (u64{5} << 30) + 3;

TEST(platform, seeks_and_sizes_go_beyond_4_gib)
{
    const temp_dir dir;
    const open_stream stream = open(dir / "sparse", "wb+");
    ASSERT_TRUE(seek_file(stream.get(), beyond_32_bits));
    std::fputs("end", stream.get());
    ASSERT_TRUE(seek_file(stream.get(), 1));
    std::fputs("start", stream.get());
    std::fflush(stream.get());
    EXPECT_EQ(file_size(stream.get()), beyond_32_bits + 3);

    char text[4] = "";
    ASSERT_TRUE(seek_file(stream.get(), beyond_32_bits));
    EXPECT_EQ(std::fread(text, 1, 3, stream.get()), 3U);
    EXPECT_STREQ(text, "end");
}

TEST(platform, a_seek_beyond_the_largest_offset_fails_and_does_not_move)
{
    const temp_dir dir;
    const open_stream stream = open(dir / "file", "wb+");
    std::fputs("abc", stream.get());
    errno = 0;
    EXPECT_FALSE(seek_file(stream.get(), u64{INT64_MAX} + 1));
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(std::ftell(stream.get()), 3);
}

TEST(platform, file_size_is_0_for_an_empty_file_and_a_device)
{
    const temp_dir dir;
    EXPECT_EQ(file_size(open(dir / "empty", "wb").get()), 0U);
    EXPECT_EQ(file_size(open("/dev/null", "rb").get()), 0U);
}

std::optional<file_kind> kind_of(const std::string& name)
{
    const auto status = find_status(name.c_str());
    return status ? std::optional(status->kind) : std::nullopt;
}

TEST(platform, find_status_tells_files_directories_and_others_apart)
{
    const temp_dir dir;
    test::write_file(dir / "file", {});
    EXPECT_EQ(kind_of(dir / "file"), file_kind::regular);
    EXPECT_EQ(kind_of(dir.path()), file_kind::directory);
    EXPECT_EQ(kind_of("/dev/null"), file_kind::other);
}

TEST(platform, find_status_follows_links)
{
    const temp_dir dir;
    std::filesystem::create_symlink(dir.path(), dir / "link");
    std::filesystem::create_symlink(dir / "nothing", dir / "broken");
    EXPECT_EQ(kind_of(dir / "link"), file_kind::directory);
    EXPECT_EQ(kind_of(dir / "broken"), std::nullopt);
}

TEST(platform, find_status_tells_why_it_fails)
{
    const temp_dir dir;
    test::write_file(dir / "file", {});
    errno = 0;
    EXPECT_FALSE(find_status((dir / "missing").c_str()));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(find_status((dir / "file/").c_str()));
    EXPECT_EQ(errno, ENOTDIR);
}

file_identity identity_of(const std::string& name)
{
    const auto status = find_status(name.c_str());
    if (!status) std::abort();
    return status->identity;
}

TEST(platform, an_identity_is_the_same_for_all_names_of_a_file)
{
    const temp_dir dir;
    test::write_file(dir / "file", {});
    std::filesystem::create_symlink("file", dir / "link");
    std::filesystem::create_hard_link(dir / "file", dir / "second");
    EXPECT_EQ(identity_of(dir / "link"), identity_of(dir / "file"));
    EXPECT_EQ(identity_of(dir / "second"), identity_of(dir / "file"));
    EXPECT_EQ(identity_of(dir / "./"), identity_of(dir.path()));
}

TEST(platform, an_identity_is_another_for_each_file)
{
    const temp_dir dir;
    test::write_file(dir / "file", {});
    test::write_file(dir / "other", {});
    EXPECT_NE(identity_of(dir / "file"), identity_of(dir / "other"));
    EXPECT_NE(identity_of(dir.path()), identity_of(dir / ".."));
    // The roots of many file systems have the same number.
    const file_identity here{1, 2};
    EXPECT_NE(here, (file_identity{2, 2}));
    EXPECT_NE(here, (file_identity{1, 1}));
}

TEST(platform, is_link_looks_at_the_name_itself)
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

TEST(platform, list_directory_gives_all_names)
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

TEST(platform, list_directory_gives_no_names_of_what_cannot_be_read)
{
    const temp_dir dir;
    test::write_file(dir / "file", {});
    EXPECT_TRUE(list_directory((dir / "file").c_str()).empty());
    EXPECT_TRUE(list_directory((dir / "missing").c_str()).empty());
    std::filesystem::create_directory(dir / "empty");
    EXPECT_TRUE(list_directory((dir / "empty").c_str()).empty());
}

TEST(platform, list_directory_holds_no_descriptor)
{
    const temp_dir dir;
    const usize before = test::open_descriptors();
    list_directory(dir.path().c_str());
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST(platform, make_directory_makes_one_and_no_parents)
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

TEST(platform, there_is_a_processor)
{
    EXPECT_GE(processor_count(), 1U);
}

TEST(platform, a_thread_is_joined_at_the_end_of_its_object)
{
    std::atomic<bool> ran = false;
    {
        const system_thread thread([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
            ran = true;
        });
        EXPECT_TRUE(thread.started());
    }
    EXPECT_TRUE(ran);
}

TEST(platform, a_thread_that_cannot_start_stands_for_none)
{
    const test::short_of_threads limit;
    const system_thread thread([] {});
    EXPECT_FALSE(thread.started());
}

[[noreturn]] void write_beyond_the_file_size_limit()
{
    const temp_dir dir;
    prepare_process();
    const open_stream stream = open(dir / "file", "wb");
    std::setvbuf(stream.get(), nullptr, _IONBF, 0);
    usize written = 0;
    {
        const test::limit_of_process limit(RLIMIT_FSIZE, 10);
        written = std::fwrite("twelve bytes", 1, 12, stream.get());
    }
    std::fprintf(stderr, "%zu %s", written, std::strerror(errno));
    std::filesystem::remove_all(dir.path());
    std::_Exit(0);
}

TEST(platform_death, a_write_beyond_the_file_size_limit_is_an_ordinary_error)
{
    EXPECT_EXIT(write_beyond_the_file_size_limit(), testing::ExitedWithCode(0),
                "^10 File too large$");
}

} // namespace
} // namespace quarnex
