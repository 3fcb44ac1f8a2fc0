// Handles on several threads, cancellation at every moment, and handles that are closed early.
#include "api/api_fixture.h"
#include "support/process_entries.h"
#include "support/waiting.h"

#include <filesystem>

namespace quarnex::test {
namespace {

constexpr u32 blocks = 4;

/// Options whose progress callback cancels at one call.
struct cancelling_options : qrx_options {
    explicit cancelling_options(u32 thread_count) : qrx_options(sized<qrx_options>())
    {
        threads = thread_count;
        flags = QRX_SEAL;
        progress = [](void* self_context, uint64_t, uint64_t) {
            auto& self = *static_cast<cancelling_options*>(self_context);
            EXPECT_TRUE(self.owner == std::this_thread::get_id());
            return ++self.calls == self.cancelled_call ? 1 : 0;
        };
        event = [](void* self_context, const qrx_event*) {
            auto& self = *static_cast<cancelling_options*>(self_context);
            EXPECT_TRUE(self.owner == std::this_thread::get_id());
            ++self.events;
        };
        context = this;
    }
    cancelling_options(const cancelling_options&) = delete;
    cancelling_options& operator=(const cancelling_options&) = delete;

    /// Cancels at call number `call` from now.
    void cancel_at(u32 call)
    {
        calls = 0;
        cancelled_call = call;
    }

    const std::thread::id owner = std::this_thread::get_id(); // callbacks run there
    u32 calls = 0;
    u32 cancelled_call = 0; // 0: none
    u32 events = 0;
};

bytes make_content(u32 count, u64 seed)
{
    return text_in_each_block(count * mib - 100, 50000, seed * 100);
}

class interface_threads : public testing::TestWithParam<u32> {
  protected:
    const time_guard guard{100};
    const qrx_params params = small_params_of(1, 1);
    const bytes content = make_content(blocks, 1);
    cancelling_options options{GetParam()};
    const bytes image = compressed(content, params, options);
};

INSTANTIATE_TEST_SUITE_P(, interface_threads, testing::Values(0, 3), [](const auto& tested) {
    return std::to_string(tested.param) + "_threads";
});

TEST_P(interface_threads, serve_a_call_after_a_cancelled_compression)
{
    for (u32 call = 1; call <= blocks; ++call) {
        options.cancel_at(call);
        EXPECT_TRUE(compressed(content, params, options, QRX_CANCELLED).empty());
        EXPECT_EQ(options.calls, call) << "nothing is done after it";
    }
    options.cancel_at(blocks + 1);
    EXPECT_TRUE(compressed(content, params, options) == image);
    EXPECT_EQ(options.calls, blocks);
}

TEST_P(interface_threads, deliver_what_was_restored_before_a_cancellation)
{
    for (u32 call = 1; call <= blocks; ++call) {
        options.cancel_at(call);
        const bytes part = restored(image, content.size(), options, QRX_CANCELLED);
        EXPECT_EQ(part.size(), std::min(call * mib, content.size()));
        EXPECT_TRUE(is_part(part, content));
        EXPECT_EQ(options.calls, call);
    }
    options.cancel_at(0);
    EXPECT_TRUE(restored(image, content.size(), options) == content);
}

TEST_P(interface_threads, read_after_a_cancelled_read)
{
    const auto reader = open_image(image, &options);
    random_source random(1);
    for (u32 round = 0; round < 6; ++round) {
        const usize offset = random.below(2) == 0 ? 0 : random.below(2 * mib);
        options.cancel_at(1 + random.below(blocks - 2));
        const bytes part = read_range(reader.get(), offset, content.size(), QRX_CANCELLED);
        EXPECT_FALSE(part.empty());
        EXPECT_TRUE(is_part(part, content, offset));
        options.cancel_at(0);
        if (random.below(2) == 0) { // continue, and decode ahead
            const usize next = offset + part.size();
            EXPECT_TRUE(read_range(reader.get(), next, 10) == slice(content, next, 10));
        }
        const usize other = random.below(static_cast<u32>(content.size() - 100000));
        EXPECT_TRUE(read_range(reader.get(), other, 100000) == slice(content, other, 100000));
    }
    EXPECT_TRUE(read_range(reader.get(), 0, content.size()) == content);
    EXPECT_EQ(options.events, 0U);
}

TEST_P(interface_threads, test_after_a_cancelled_test)
{
    const auto reader = open_image(image, &options);
    for (u32 call = 1; call <= blocks; ++call) {
        options.cancel_at(call);
        EXPECT_EQ(qrx_reader_test(reader.get()), QRX_CANCELLED);
        EXPECT_EQ(options.calls, call);
        options.cancel_at(0);
        EXPECT_TRUE(read_range(reader.get(), 1000, mib) == slice(content, 1000, mib));
    }
    EXPECT_EQ(qrx_reader_test(reader.get()), QRX_OK);
    EXPECT_EQ(options.events, 0U);
}

TEST_P(interface_threads, find_a_wrong_seal_after_cancelled_reads)
{
    bytes damaged = image;
    damaged.back() ^= 1;
    const auto reader = open_image(damaged, &options);
    for (u32 call = 1; call < blocks; ++call) {
        options.cancel_at(call);
        EXPECT_TRUE(read_range(reader.get(), 0, content.size(), QRX_CANCELLED) ==
                    slice(content, 0, call * mib));
    }
    options.cancel_at(0);
    EXPECT_TRUE(read_range(reader.get(), 0, content.size(), QRX_CHECKSUM_MISMATCH) == content);
    EXPECT_EQ(qrx_reader_test(reader.get()), QRX_CHECKSUM_MISMATCH);
    EXPECT_EQ(options.events, 2U);
}

TEST_P(interface_threads, keep_a_cancelled_writer_cancelled)
{
    for (u32 call = 1; call <= blocks; ++call) {
        bytes written;
        const qrx_sink sink = sink_to(written);
        qrx_writer* opened = nullptr;
        options.cancel_at(call);
        ASSERT_EQ(qrx_writer_open_sink(&opened, &sink, QRX_UNKNOWN_SIZE, &params, &options),
                  QRX_OK);
        const writer_ptr writer(opened);
        qrx_status result = QRX_OK;
        for (usize done = 0; done < content.size() && result == QRX_OK; done += 300000)
            result = qrx_writer_write(opened, &content[done],
                                      std::min<usize>(300000, content.size() - done));
        EXPECT_TRUE(result == QRX_OK || result == QRX_CANCELLED);
        EXPECT_EQ(qrx_writer_finish(opened), QRX_CANCELLED);
        EXPECT_NE(qrx_writer_finish(opened), QRX_OK);
        EXPECT_NE(qrx_writer_write(opened, content.data(), 1), QRX_OK);
        EXPECT_EQ(options.calls, call);
    }
}

TEST_P(interface_threads, end_when_a_reader_is_closed_early)
{
    const usize threads = running_threads();
    for (u32 block = 0; block < blocks; ++block) {
        const auto reader = open_image(image, &options);
        const usize offset = block * mib;
        read_range(reader.get(), offset, 10);
        // A second read in sequence decodes ahead.
        EXPECT_TRUE(read_range(reader.get(), offset + 10, 10) == slice(content, offset + 10, 10));
    }
    EXPECT_TRUE(becomes_true([&] { return running_threads() == threads; }));
}

TEST_P(interface_threads, leave_no_file_of_an_unfinished_writer)
{
    const temp_dir dir;
    const std::string name = dir / "out.qrx";
    for (const bool existed : {false, true}) {
        if (existed) write_file(name, bytes_of("old"));
        for (u32 pieces = 0; pieces <= blocks; ++pieces) {
            options.cancel_at(pieces);
            qrx_writer* writer = nullptr;
            ASSERT_EQ(qrx_writer_open(&writer, name.c_str(), QRX_UNKNOWN_SIZE, &params, &options),
                      QRX_OK);
            for (u32 i = 0; i < pieces; ++i) qrx_writer_write(writer, content.data(), mib);
            if (pieces % 2 == 1) {
                EXPECT_EQ(qrx_writer_finish(writer), QRX_CANCELLED);
            }
            qrx_writer_close(writer);
            if (existed) {
                EXPECT_TRUE(read_file(name) == bytes_of("old"));
                std::filesystem::remove(name);
            }
            EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
            if (existed) write_file(name, bytes_of("old"));
        }
    }
}

/// Compresses, restores, reads and writes with handles of its own, all of several threads.
void use_all_handles(u32 seed)
{
    const u32 threads = seed % 3;
    const qrx_params params = small_params_of(1 + seed % 5, seed % 3);
    const bytes content = make_content(2, seed);
    cancelling_options options(threads);
    const bytes image = compressed(content, params, options);
    EXPECT_TRUE(restored(image, content.size(), options) == content);

    bytes written;
    const qrx_sink sink = sink_to(written);
    qrx_writer* opened = nullptr;
    ASSERT_EQ(qrx_writer_open_sink(&opened, &sink, content.size(), &params, &options), QRX_OK);
    const writer_ptr writer(opened);
    const auto reader = open_image(image, &options);
    random_source random(seed);
    for (usize done = 0; done < content.size();) {
        const usize size = std::min<usize>(random.below(900000), content.size() - done);
        const bytes piece = read_range(reader.get(), done, size);
        ASSERT_EQ(qrx_writer_write(opened, piece.data(), piece.size()), QRX_OK);
        done += size;
    }
    EXPECT_EQ(qrx_writer_finish(opened), QRX_OK);
    EXPECT_TRUE(written == image);
    EXPECT_EQ(qrx_reader_test(reader.get()), QRX_OK);

    qrx_codec* made = nullptr;
    ASSERT_EQ(qrx_codec_new(&made, &params, &options), QRX_OK);
    const codec_ptr codec(made);
    bytes payload(mib + QRX_CODEC_SLACK);
    bytes block(mib);
    usize size = 0;
    EXPECT_EQ(qrx_codec_compress(made, content.data(), mib, payload.data(), payload.size(), &size),
              QRX_OK);
    EXPECT_EQ(qrx_codec_decompress(made, payload.data(), size, block.data(), mib), QRX_OK);
    EXPECT_TRUE(is_part(block, content));
    EXPECT_EQ(options.events, 0U);
}

TEST(interface_threads_of_the_caller, use_handles_of_their_own_at_once)
{
    const time_guard guard(100);
    std::vector<std::thread> callers;
    for (u32 caller = 0; caller < 4; ++caller)
        callers.emplace_back([caller] { use_all_handles(caller); });
    for (std::thread& caller : callers) caller.join();
}

TEST(interface_threads_of_the_caller, take_turns_with_a_handle)
{
    const time_guard guard(100);
    const qrx_params params = small_params_of(2, 1);
    const bytes content = make_content(blocks, 3);
    auto options = sized<qrx_options>();
    options.threads = 2;
    const bytes image = compressed(content, params, options);
    const auto reader = open_image(image, &options);
    for (u32 turn = 0; turn < blocks; ++turn) {
        std::thread([&, offset = turn * usize{900000}] {
            EXPECT_TRUE(read_range(reader.get(), offset, 900000) == slice(content, offset, 900000));
        }).join();
    }
}

} // namespace
} // namespace quarnex::test
