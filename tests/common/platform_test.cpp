#include "common/platform.h"

#include "common/file_lookup.h"
#include "support/process_entries.h"
#include "support/system_differences.h"
#include "support/temp_dir.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace quarnex {
namespace {

using test::identity_of;
using test::kind_of;
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
    EXPECT_EQ(file_size(open(test::null_device, "rb").get()), 0U);
}

TEST(platform, find_status_tells_files_directories_and_others_apart)
{
    const temp_dir dir;
    test::write_file(dir / "file", {});
    EXPECT_EQ(kind_of(dir / "file"), file_kind::regular);
    EXPECT_EQ(kind_of(dir.path()), file_kind::directory);
    EXPECT_EQ(kind_of(test::null_device), file_kind::other);
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
    // One without a number is not known to be that of any file.
    EXPECT_NE((file_identity{1, 0}), (file_identity{1, 0}));
}

TEST(platform, the_address_space_is_large_and_not_larger_than_addresses_can_be)
{
    EXPECT_GE(address_space(), u64{1} << 30);
    EXPECT_LE(address_space(), UINTPTR_MAX);
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

} // namespace
} // namespace quarnex
