#include "api/api_fixture.h"
#include "support/temp_dir.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace quarnex::test {
namespace {

writer_ptr open_sink(memory_file& file, const qrx_params& params, qrx_options* options,
                     u64 size = QRX_UNKNOWN_SIZE)
{
    const qrx_sink sink = file.sink();
    qrx_writer* writer = nullptr;
    EXPECT_EQ(qrx_writer_open_sink(&writer, &sink, size, &params, options), QRX_OK);
    return writer_ptr(writer);
}

usize files_in(const temp_dir& dir)
{
    const std::filesystem::directory_iterator all(dir.path());
    return static_cast<usize>(std::distance(begin(all), end(all)));
}

TEST(api_writer, pieces_of_any_size_make_the_same_file)
{
    const bytes data = sample_data(3);
    const qrx_params params = params_of(2, 1);
    const bytes expected = compressed(data, params, QRX_SEAL);
    for (const u32 threads : {0U, 1U, 3U}) {
        for (const u64 size : {u64{QRX_UNKNOWN_SIZE}, u64{data.size()}}) {
            memory_file file;
            recorded_options options(threads, QRX_SEAL);
            const writer_ptr writer = open_sink(file, params, &options, size);
            random_source random(threads);
            for (usize at = 0; at < data.size();) {
                const usize piece = std::min<usize>(random.below(1500000), data.size() - at);
                ASSERT_EQ(qrx_writer_write(writer.get(), data.data() + at, piece), QRX_OK);
                at += piece;
            }
            EXPECT_EQ(qrx_writer_finish(writer.get()), QRX_OK);
            EXPECT_TRUE(file.content == expected);
            EXPECT_EQ(file.header_came_last, size == QRX_UNKNOWN_SIZE);
            EXPECT_EQ(options.progress_calls, 4U);
            EXPECT_EQ(options.done, data.size());
            EXPECT_EQ(options.total, size == QRX_UNKNOWN_SIZE ? 0 : size);
            EXPECT_EQ(qrx_writer_finish(writer.get()), QRX_BAD_ARGUMENT) << "only once";
            EXPECT_EQ(qrx_writer_write(writer.get(), data.data(), 1), QRX_BAD_ARGUMENT);
        }
    }
}

TEST(api_writer, the_lent_buffer_takes_the_same_bytes)
{
    const bytes data = sample_data(2);
    const qrx_params params = params_of(3, 0);
    const bytes expected = compressed(data, params);
    for (const u64 size : {u64{QRX_UNKNOWN_SIZE}, u64{data.size()}}) {
        memory_file file;
        recorded_options options(2);
        const writer_ptr writer = open_sink(file, params, &options, size);
        for (usize at = 0; at < data.size();) {
            void* dest = nullptr;
            usize room = 0;
            ASSERT_EQ(qrx_writer_buffer(writer.get(), &dest, &room), QRX_OK);
            ASSERT_GE(room, 1U);
            const usize piece = std::min({room, usize{400000}, data.size() - at});
            std::memcpy(dest, data.data() + at, piece);
            EXPECT_EQ(qrx_writer_advance(writer.get(), room + 1), QRX_BAD_ARGUMENT);
            ASSERT_EQ(qrx_writer_advance(writer.get(), piece), QRX_OK);
            at += piece;
        }
        EXPECT_EQ(qrx_writer_advance(writer.get(), 1), QRX_BAD_ARGUMENT) << "the loan has ended";
        EXPECT_EQ(qrx_writer_finish(writer.get()), QRX_OK);
        EXPECT_TRUE(file.content == expected);
    }
}

TEST(api_writer, the_declared_size_is_enforced)
{
    const bytes data = sample_data(0, 1000);
    const qrx_params params = params_of(1, 0);
    memory_file file;
    recorded_options options;
    const writer_ptr writer = open_sink(file, params, &options, 1000);
    EXPECT_EQ(qrx_writer_write(writer.get(), data.data(), 999), QRX_OK);
    EXPECT_EQ(qrx_writer_finish(writer.get()), QRX_BAD_ARGUMENT);
    EXPECT_TRUE(options.events.empty()) << "a refused argument has no event";
    EXPECT_EQ(qrx_writer_write(writer.get(), data.data() + 999, 1), QRX_OK);
    EXPECT_EQ(qrx_writer_finish(writer.get()), QRX_OK);
    EXPECT_TRUE(file.content == compressed(data, params));
    const writer_ptr second = open_sink(file, params, nullptr, 999);
    EXPECT_EQ(qrx_writer_write(second.get(), data.data(), 1000), QRX_BAD_ARGUMENT);
    memory_file empty;
    const writer_ptr third = open_sink(empty, params, nullptr, 0);
    EXPECT_EQ(qrx_writer_finish(third.get()), QRX_OK);
    EXPECT_EQ(empty.content, compressed({}, params));
}

TEST(api_writer, more_than_the_declared_size_is_refused_whole)
{
    const bytes data = sample_data(2, 0);
    const qrx_params params = params_of(1, 0);
    memory_file file;
    const writer_ptr writer = open_sink(file, params, nullptr, 1000);
    EXPECT_EQ(qrx_writer_write(writer.get(), data.data(), 1001), QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_writer_write(writer.get(), data.data(), 400), QRX_OK);
    EXPECT_EQ(qrx_writer_write(writer.get(), data.data(), 601), QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_writer_write(writer.get(), data.data() + 400, 600), QRX_OK);
    void* dest = nullptr;
    usize room = 0;
    EXPECT_EQ(qrx_writer_buffer(writer.get(), &dest, &room), QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_writer_advance(writer.get(), mib - 1000), QRX_BAD_ARGUMENT) << "nothing is lent";
    EXPECT_EQ(qrx_writer_finish(writer.get()), QRX_OK);
    EXPECT_EQ(file.content, compressed(slice(data, 0, 1000), params));
}

TEST(api_writer, a_file_gets_its_name_when_it_is_finished)
{
    const temp_dir dir;
    const std::string name = dir / "a.qrx";
    const bytes data = sample_data(1);
    const qrx_params params = params_of(1, 0);
    write_file(name, bytes_of("old"));
    qrx_writer* opened = nullptr;
    ASSERT_EQ(qrx_writer_open(&opened, name.c_str(), QRX_UNKNOWN_SIZE, &params, nullptr), QRX_OK);
    writer_ptr writer(opened);
    ASSERT_EQ(qrx_writer_write(opened, data.data(), data.size()), QRX_OK);
    EXPECT_EQ(read_file(name), bytes_of("old"));
    EXPECT_EQ(files_in(dir), 2U);
    ASSERT_EQ(qrx_writer_finish(opened), QRX_OK);
    EXPECT_EQ(read_file(name), compressed(data, params));
    writer.reset();
    EXPECT_EQ(files_in(dir), 1U);
}

TEST(api_writer, without_finish_nothing_remains)
{
    const temp_dir dir;
    const bytes data = sample_data(2);
    for (const u32 threads : {0U, 2U}) {
        recorded_options options(threads);
        options.cancel_at = 1;
        qrx_writer* opened = nullptr;
        const qrx_params params = params_of(1, 0);
        ASSERT_EQ(
            qrx_writer_open(&opened, (dir / "a").c_str(), QRX_UNKNOWN_SIZE, &params, &options),
            QRX_OK);
        const writer_ptr writer(opened);
        const qrx_status written = qrx_writer_write(opened, data.data(), data.size());
        const qrx_status finished = qrx_writer_finish(opened);
        EXPECT_TRUE(written == QRX_CANCELLED || written == QRX_OK);
        EXPECT_EQ(finished, QRX_CANCELLED);
    }
    EXPECT_EQ(files_in(dir), 0U);
}

TEST(api_writer, a_file_of_known_size_needs_little_memory_and_has_a_total)
{
    const temp_dir dir;
    const bytes data = sample_data(0, 5000);
    const qrx_params params = params_of(2, 0);
    recorded_options options;
    options.memory_limit = 3 * mib;
    qrx_writer* opened = nullptr;
    const std::string name = dir / "a";
    ASSERT_EQ(qrx_writer_open(&opened, name.c_str(), data.size(), &params, &options), QRX_OK);
    const writer_ptr writer(opened);
    ASSERT_EQ(qrx_writer_write(opened, data.data(), data.size()), QRX_OK);
    ASSERT_EQ(qrx_writer_finish(opened), QRX_OK);
    EXPECT_EQ(options.total, data.size());
    EXPECT_EQ(read_file(name), compressed(data, params));
}

TEST(api_writer, a_failed_finish_leaves_no_file)
{
    const temp_dir dir;
    qrx_writer* opened = nullptr;
    ASSERT_EQ(qrx_writer_open(&opened, (dir / "a").c_str(), 1000, nullptr, nullptr), QRX_OK);
    writer_ptr writer(opened);
    ASSERT_EQ(qrx_writer_write(opened, "abc", 3), QRX_OK);
    EXPECT_EQ(files_in(dir), 1U);
    EXPECT_EQ(qrx_writer_finish(opened), QRX_BAD_ARGUMENT);
    writer.reset();
    EXPECT_EQ(files_in(dir), 0U);
}

TEST(api_writer, a_change_of_the_directory_has_no_effect)
{
    const temp_dir first;
    const temp_dir second;
    const std::filesystem::path before = std::filesystem::current_path();
    std::vector<writer_ptr> writers;
    for (const temp_dir* dir : {&first, &second}) {
        std::filesystem::current_path(dir->path());
        qrx_writer* opened = nullptr;
        const char* const name = dir == &first ? "a" : "b";
        ASSERT_EQ(qrx_writer_open(&opened, name, QRX_UNKNOWN_SIZE, nullptr, nullptr), QRX_OK);
        writers.emplace_back(opened);
        EXPECT_EQ(qrx_writer_write(opened, name, 1), QRX_OK);
    }
    qrx_writer* unfinished = nullptr;
    ASSERT_EQ(qrx_writer_open(&unfinished, "c", QRX_UNKNOWN_SIZE, nullptr, nullptr), QRX_OK);
    std::filesystem::current_path(before);
    qrx_writer_close(unfinished);
    for (const writer_ptr& each : writers) EXPECT_EQ(qrx_writer_finish(each.get()), QRX_OK);
    const recorded_options options;
    EXPECT_EQ(restored(read_file(first / "a"), 1, options), bytes_of("a"));
    EXPECT_EQ(restored(read_file(second / "b"), 1, options), bytes_of("b"));
    EXPECT_EQ(files_in(first) + files_in(second), 2U);
}

TEST(api_writer, several_writers_share_a_directory)
{
    const temp_dir dir;
    std::vector<writer_ptr> writers;
    for (u32 i = 0; i < 5; ++i) {
        qrx_writer* opened = nullptr;
        const std::string name = dir / ("file" + std::to_string(i));
        ASSERT_EQ(qrx_writer_open(&opened, name.c_str(), QRX_UNKNOWN_SIZE, nullptr, nullptr),
                  QRX_OK);
        writers.emplace_back(opened);
        EXPECT_EQ(qrx_writer_write(opened, "abc", i % 4), QRX_OK);
    }
    for (const writer_ptr& each : writers) EXPECT_EQ(qrx_writer_finish(each.get()), QRX_OK);
    writers.clear();
    EXPECT_EQ(files_in(dir), 5U);
}

TEST(api_writer, only_files_are_replaced)
{
    const temp_dir dir;
    recorded_options options;
    qrx_writer* writer = nullptr;
    EXPECT_EQ(qrx_writer_open(&writer, dir.path().c_str(), QRX_UNKNOWN_SIZE, nullptr, &options),
              QRX_OPEN_FAILED);
    EXPECT_EQ(writer, nullptr);
    EXPECT_EQ(
        qrx_writer_open(&writer, (dir / "none/a").c_str(), QRX_UNKNOWN_SIZE, nullptr, &options),
        QRX_OPEN_FAILED);
    ASSERT_EQ(options.events.size(), 2U);
    EXPECT_EQ(options.events[0].system_error, EEXIST);
    EXPECT_EQ(options.events[1].system_error, ENOENT);
    EXPECT_EQ(files_in(dir), 0U);
    EXPECT_EQ(qrx_writer_open(&writer, "", QRX_UNKNOWN_SIZE, nullptr, &options), QRX_OPEN_FAILED);
    EXPECT_EQ(options.events.back().system_error, ENOENT);
}

#ifndef _WIN32
TEST(api_writer, names_that_no_file_can_have_are_refused_at_once)
{
    const temp_dir dir;
    recorded_options options;
    qrx_writer* writer = nullptr;
    const std::string too_long = dir / std::string(300, 'a');
    EXPECT_EQ(qrx_writer_open(&writer, too_long.c_str(), QRX_UNKNOWN_SIZE, nullptr, &options),
              QRX_OPEN_FAILED);
    EXPECT_EQ(options.events.back().system_error, ENAMETOOLONG);
    EXPECT_EQ(files_in(dir), 0U);
}

TEST(api_writer, a_link_is_replaced_unless_it_leads_to_what_is_no_file)
{
    const temp_dir dir;
    write_file(dir / "file", bytes_of("old"));
    for (const char* const target : {"/dev/null", ".", "file", "missing"}) {
        const std::string link = dir / "link";
        std::filesystem::remove(link);
        std::filesystem::create_symlink(target, link);
        const bool is_file = std::string_view(target) == "file";
        const bool is_allowed = is_file || std::string_view(target) == "missing";
        qrx_writer* opened = nullptr;
        EXPECT_EQ(qrx_writer_open(&opened, link.c_str(), QRX_UNKNOWN_SIZE, nullptr, nullptr),
                  is_allowed ? QRX_OK : QRX_OPEN_FAILED);
        const writer_ptr writer(opened);
        if (is_allowed) {
            EXPECT_EQ(qrx_writer_finish(opened), QRX_OK);
        }
        EXPECT_EQ(std::filesystem::is_symlink(link), !is_allowed);
    }
    EXPECT_EQ(read_file(dir / "file"), bytes_of("old"));
    EXPECT_EQ(files_in(dir), 2U);
}
#endif

TEST(api_writer, a_failing_sink_fails_the_writer)
{
    const bytes data = sample_data(2);
    const qrx_params params = params_of(1, 0);
    for (const u32 threads : {0U, 2U}) {
        for (u32 call = 1; call <= 5; ++call) { // three records, the seal, the header
            memory_file file;
            file.fails_at = call;
            recorded_options options(threads, QRX_SEAL);
            const writer_ptr writer = open_sink(file, params, &options);
            qrx_status result = qrx_writer_write(writer.get(), data.data(), data.size());
            if (result == QRX_OK) result = qrx_writer_finish(writer.get());
            EXPECT_EQ(result, QRX_WRITE_FAILED) << call;
            ASSERT_EQ(options.events.size(), 1U);
            EXPECT_EQ(options.events[0].system_error, 77);
            for (u32 again = 0; again < 2; ++again) {
                EXPECT_EQ(qrx_writer_write(writer.get(), data.data(), 1), QRX_WRITE_FAILED);
                EXPECT_EQ(qrx_writer_advance(writer.get(), 1), QRX_WRITE_FAILED);
                EXPECT_EQ(qrx_writer_finish(writer.get()), QRX_WRITE_FAILED);
            }
        }
    }
    memory_file file;
    file.fails_at = 1;
    const qrx_sink sink = file.sink();
    qrx_writer* writer = nullptr;
    EXPECT_EQ(qrx_writer_open_sink(&writer, &sink, 5, &params, nullptr), QRX_WRITE_FAILED)
        << "the header comes first if the size is known";
    EXPECT_EQ(writer, nullptr);
}

/// Copies all blocks of an image by their payloads.
bytes copied(const bytes& image, u32 threads, u32 flags, bool has_sums)
{
    const reader_ptr reader = open_image(image);
    const u64 blocks = info_of(reader.get()).block_count;
    auto params = sized<qrx_params>();
    EXPECT_EQ(qrx_reader_params(reader.get(), &params), QRX_OK);
    memory_file file;
    recorded_options options(threads, flags);
    const writer_ptr writer = open_sink(file, params, &options);
    bytes payload(mib);
    bytes block(mib);
    for (u64 index = 0; index < blocks; ++index) {
        usize size = 0;
        usize length = 0;
        EXPECT_EQ(qrx_reader_payload(reader.get(), index, payload.data(), mib, &size), QRX_OK);
        EXPECT_EQ(qrx_reader_block(reader.get(), index, block.data(), mib, &length), QRX_OK);
        const u32 sum = qrx_crc32(0, block.data(), length);
        EXPECT_EQ(qrx_writer_raw_block(writer.get(), payload.data(), size, length,
                                       has_sums ? &sum : nullptr),
                  QRX_OK);
    }
    EXPECT_EQ(qrx_writer_finish(writer.get()), QRX_OK);
    EXPECT_TRUE(options.events.empty());
    return file.content;
}

TEST(api_writer, raw_blocks_make_the_same_file)
{
    const bytes data = joined({sample_data(2, 0), find_shape("random").make(5000, 1)});
    qrx_params params = params_of(3, 1);
    params.filter = QRX_FILTER_X86;
    const bytes image = compressed(data, params, QRX_SEAL);
    const bytes unsealed = slice(image, 0, image.size() - 4);
    for (const u32 threads : {0U, 2U}) {
        EXPECT_TRUE(copied(image, threads, QRX_SEAL, true) == image);
        EXPECT_TRUE(copied(image, threads, QRX_SEAL, false) == image);
        EXPECT_TRUE(copied(image, threads, 0, false) == unsealed);
    }
}

TEST(api_writer, raw_blocks_and_pieces_can_be_mixed)
{
    const bytes data = sample_data(3);
    const qrx_params params = params_of(2, 2);
    const bytes image = compressed(data, params, QRX_SEAL);
    const reader_ptr reader = open_image(image);
    memory_file file;
    recorded_options options(2, QRX_SEAL);
    const writer_ptr writer = open_sink(file, params, &options);
    bytes payload(mib);
    usize size = 0;
    ASSERT_EQ(qrx_writer_write(writer.get(), data.data(), mib), QRX_OK);
    ASSERT_EQ(qrx_reader_payload(reader.get(), 1, payload.data(), mib, &size), QRX_OK);
    ASSERT_EQ(qrx_writer_raw_block(writer.get(), payload.data(), size, mib, nullptr), QRX_OK);
    ASSERT_EQ(qrx_writer_write(writer.get(), data.data() + 2 * mib, data.size() - 2 * mib), QRX_OK);
    ASSERT_EQ(qrx_writer_finish(writer.get()), QRX_OK);
    EXPECT_TRUE(file.content == image);
}

TEST(api_writer, raw_blocks_out_of_place_are_refused)
{
    const qrx_params params = params_of(1, 0);
    memory_file file;
    const bytes payload(100, 1);
    const writer_ptr writer = open_sink(file, params, nullptr);
    qrx_writer* const raw = writer.get();
    const u8* const src = payload.data();
    EXPECT_EQ(qrx_writer_raw_block(raw, src, 100, 99, nullptr), QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_writer_raw_block(raw, src, 0, 0, nullptr), QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_writer_raw_block(raw, src, 100, mib + 1, nullptr), QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_writer_raw_block(raw, nullptr, 0, 1, nullptr), QRX_BAD_ARGUMENT);
    ASSERT_EQ(qrx_writer_write(raw, src, 1), QRX_OK);
    EXPECT_EQ(qrx_writer_raw_block(raw, src, 100, 100, nullptr), QRX_BAD_ARGUMENT)
        << "inside a block";
    const writer_ptr second = open_sink(file, params, nullptr);
    EXPECT_EQ(qrx_writer_raw_block(second.get(), src, 100, 100, nullptr), QRX_OK);
    EXPECT_EQ(qrx_writer_raw_block(second.get(), src, 100, 100, nullptr), QRX_BAD_ARGUMENT)
        << "after a short block";
    EXPECT_EQ(qrx_writer_write(second.get(), src, 1), QRX_BAD_ARGUMENT);
}

TEST(api_writer, a_damaged_raw_block_is_not_sealed)
{
    const bytes payload(100, 0x55);
    const qrx_params params = params_of(5, 0);
    for (const u32 threads : {0U, 1U}) {
        memory_file file;
        recorded_options options(threads, QRX_SEAL);
        const writer_ptr writer = open_sink(file, params, &options);
        qrx_status result =
            qrx_writer_raw_block(writer.get(), payload.data(), payload.size(), 50000, nullptr);
        if (result == QRX_OK) result = qrx_writer_finish(writer.get());
        EXPECT_TRUE(result == QRX_BLOCK_SHORT || result == QRX_INEXACT_END);
        EXPECT_EQ(options.found(), std::vector{result});
    }
}

TEST(api_writer, bad_arguments_are_refused)
{
    const qrx_params params = params_of(6, 0);
    memory_file file;
    qrx_sink sink = file.sink();
    qrx_writer* writer = nullptr;
    EXPECT_EQ(qrx_writer_open_sink(&writer, &sink, 0, &params, nullptr), QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_writer_open_sink(nullptr, &sink, 0, nullptr, nullptr), QRX_BAD_ARGUMENT);
    sink.write = nullptr;
    EXPECT_EQ(qrx_writer_open_sink(&writer, &sink, 0, nullptr, nullptr), QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_writer_open(&writer, nullptr, QRX_UNKNOWN_SIZE, nullptr, nullptr),
              QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_writer_write(nullptr, "a", 1), QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_writer_finish(nullptr), QRX_BAD_ARGUMENT);
    qrx_writer_close(nullptr);
    recorded_options options;
    options.memory_limit = mib;
    sink = file.sink();
    EXPECT_EQ(qrx_writer_open_sink(&writer, &sink, QRX_UNKNOWN_SIZE, nullptr, &options),
              QRX_OVER_LIMIT);
}

} // namespace
} // namespace quarnex::test
