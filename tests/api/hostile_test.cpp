// Images, callbacks and call sequences of an adversary.
#include "api/api_fixture.h"
#include "support/waiting.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace quarnex::test {
namespace {

/// A source whose reads fail from one call on, until it is mended.
struct failing_source {
    const bytes& image;
    u32 calls = 0;
    u32 failing_call = UINT32_MAX;

    qrx_source get()
    {
        return {sizeof(qrx_source),
                [](void* context, uint64_t offset, void* dest, size_t size, size_t* got) {
                    auto& self = *static_cast<failing_source*>(context);
                    if (++self.calls >= self.failing_call) return 5;
                    std::copy_n(self.image.data() + offset, size, static_cast<u8*>(dest));
                    *got = size;
                    return 0;
                },
                image.size(), this};
    }
};

/// A sink that drops everything.
qrx_sink no_sink()
{
    return {sizeof(qrx_sink), [](void*, uint64_t, const void*, size_t) { return 0; }, nullptr};
}

TEST(hostile_calls, of_a_raw_block_end_a_loan)
{
    const qrx_params params = small_params_of(1, 0);
    const qrx_sink sink = no_sink();
    qrx_writer* opened = nullptr;
    ASSERT_EQ(qrx_writer_open_sink(&opened, &sink, QRX_UNKNOWN_SIZE, &params, nullptr), QRX_OK);
    const writer_ptr writer(opened);
    void* dest = nullptr;
    usize room = 0;
    ASSERT_EQ(qrx_writer_buffer(opened, &dest, &room), QRX_OK);
    const bytes stored(mib, 'a');
    const u32 sum = 0;
    ASSERT_EQ(qrx_writer_raw_block(opened, stored.data(), mib, mib, &sum), QRX_OK);
    EXPECT_EQ(qrx_writer_advance(opened, 1), QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_writer_advance(opened, room), QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_writer_write(opened, "b", 1), QRX_OK);
    EXPECT_EQ(qrx_writer_finish(opened), QRX_OK);
}

TEST(hostile_source, leaves_a_reader_as_it_was_when_a_test_fails)
{
    const bytes content(3 * mib, 'x');
    const bytes image = compressed(content, small_params_of(2, 0), QRX_SEAL);
    failing_source file{image};
    const qrx_source source = file.get();
    qrx_reader* opened = nullptr;
    ASSERT_EQ(qrx_reader_open_source(&opened, &source, nullptr), QRX_OK);
    const reader_ptr reader(opened);
    for (u32 call = 1; call <= 7; ++call) { // record heads, the seal, and payloads
        file.calls = 0;
        file.failing_call = call;
        EXPECT_EQ(qrx_reader_test(opened), QRX_READ_FAILED);
        file.failing_call = UINT32_MAX;
        auto info = sized<qrx_info>();
        EXPECT_EQ(qrx_reader_info(opened, &info), QRX_OK);
        EXPECT_EQ(info.blocks_found, 3U);
        EXPECT_EQ(info.is_sealed, 1U);
        bytes restored(content.size());
        usize got = 0;
        EXPECT_EQ(qrx_reader_read(opened, 0, restored.data(), restored.size(), &got), QRX_OK);
        EXPECT_TRUE(restored == content);
    }
    EXPECT_EQ(qrx_reader_test(opened), QRX_OK);
}

TEST(hostile_source, is_reported_when_a_record_head_cannot_be_read)
{
    const bytes image = compressed(bytes(100, 'x'), small_params_of(1, 0));
    recorded_options options;
    failing_source file{.image = image, .failing_call = 2};
    const qrx_source source = file.get();
    qrx_reader* opened = nullptr;
    EXPECT_EQ(qrx_reader_open_source(&opened, &source, &options), QRX_READ_FAILED);
    EXPECT_EQ(opened, nullptr);
    ASSERT_FALSE(options.events.empty());
    EXPECT_EQ(options.events.back().what, QRX_READ_FAILED);
    EXPECT_EQ(options.events.back().offset, 32U);
    EXPECT_EQ(options.events.back().system_error, 5);
}

TEST(hostile_header, with_blocks_of_4_gib_can_be_read_with_damage)
{
    const time_guard guard;
    qrx_file file;
    file.header.original_size = u64{9} << 30;
    file.header.block_mb = 4096;
    file.records = {{0, bytes(10, 'a')}};
    const bytes image = build_qrx(file);
    auto options = sized<qrx_options>();
    options.flags = QRX_KEEP_DAMAGED;
    const auto reader = open_image(image, &options);
    auto block = sized<qrx_block_info>();
    ASSERT_EQ(qrx_reader_block_info(reader.get(), 1, &block), QRX_OK);
    EXPECT_EQ(block.length, u64{4} << 30);
    bytes dest(100, 'x');
    usize got = 0;
    for (const u64 offset : {u64{0}, (u64{4} << 30) - 50, u64{5} << 30}) {
        EXPECT_EQ(qrx_reader_read(reader.get(), offset, dest.data(), dest.size(), &got), QRX_OK);
        EXPECT_EQ(got, dest.size());
        EXPECT_TRUE(dest == bytes(100));
    }
    EXPECT_EQ(qrx_reader_test(reader.get()), QRX_CORRUPT);
}

TEST(hostile_header, of_2_to_the_32_blocks_is_corrupt)
{
    qrx_file file;
    file.records = {{0, m1_run_payload('a', mib)}};
    for (const u64 size : {u64{1} << 52, UINT64_MAX}) {
        file.header.original_size = size;
        const bytes image = build_qrx(file);
        qrx_reader* opened = nullptr;
        EXPECT_EQ(qrx_reader_open_memory(&opened, image.data(), image.size(), nullptr),
                  QRX_CORRUPT);
        EXPECT_EQ(opened, nullptr);
        u64 original_size = 7;
        EXPECT_EQ(qrx_decompressed_size(image.data(), image.size(), &original_size), QRX_CORRUPT);
        EXPECT_EQ(original_size, 7U);
    }
}

TEST(hostile_seal, of_an_empty_file_is_kept_only_as_an_event)
{
    bytes image = compressed({}, small_params_of(1, 0), QRX_SEAL);
    image.back() = 1;
    recorded_options options;
    for (const u32 flags : {0U, QRX_KEEP_DAMAGED}) {
        options.flags = flags;
        options.events.clear();
        const auto reader = open_image(image, &options);
        usize got = 1;
        u8 dest = 0;
        EXPECT_EQ(qrx_reader_read(reader.get(), 0, &dest, 1, &got),
                  flags == 0 ? QRX_CHECKSUM_MISMATCH : QRX_OK);
        EXPECT_EQ(got, 0U);
        ASSERT_FALSE(options.events.empty());
        EXPECT_EQ(options.events.back().what, QRX_CHECKSUM_MISMATCH);
    }
}

/// An allocator that counts, and aligns to no more than what is promised.
struct stingy_memory {
    static constexpr usize promised = alignof(std::max_align_t);
    static constexpr usize page = 4096;

    u64 limit = UINT64_MAX;
    std::atomic<u64> used{0};

    qrx_allocator get() { return {allocate, release, this}; }

  private:
    /// Precedes the caller's bytes.
    struct alignas(promised) origin {
        void* memory;
    };

    static void* allocate(void* context, size_t size)
    {
        auto& self = *static_cast<stingy_memory*>(context);
        EXPECT_LE(self.used += size, self.limit);
        void* memory = std::malloc(2 * page + size);
        usize room = page + sizeof(origin);
        void* start = memory;
        if (std::align(page, sizeof(origin), start, room) == nullptr) std::abort();
        origin* const before = new (start) origin{memory};
        return before + 1; // a multiple of sizeof(origin), and of no more
    }

    static void release(void* context, void* memory, size_t size)
    {
        static_cast<stingy_memory*>(context)->used -= size;
        std::free((static_cast<origin*>(memory) - 1)->memory);
    }
};

/// Blocks whose payloads differ in size, so that buffers of one rarely fit the next.
bytes uneven_content()
{
    bytes content;
    const usize random_sizes[]{300, 700, 400};
    for (u32 i = 0; i < std::size(random_sizes); ++i) {
        const usize size = random_sizes[i] << 10;
        const bytes part = find_shape("random").make(size, i);
        content.insert(content.end(), part.begin(), part.end());
        content.resize((i + 1) * mib, 'z');
    }
    return content;
}

TEST(hostile_limits, of_just_the_memory_that_is_needed_suffice)
{
    const bytes content = uneven_content();
    for (const u32 threads : {0U, 2U}) {
        for (const u32 method : {1U, 4U}) {
            SCOPED_TRACE(threads * 10 + method);
            const qrx_params params = small_params_of(method, 1);
            stingy_memory memory;
            recorded_options options;
            options.allocator = memory.get();
            options.threads = threads;
            memory.limit = options.memory_limit = qrx_compress_memory(&params, threads);
            bytes image(qrx_compress_bound(&params, content.size()));
            usize size = 0;
            ASSERT_EQ(qrx_compress(&params, &options, content.data(), content.size(), image.data(),
                                   image.size(), &size),
                      QRX_OK);
            image.resize(size);
            const u64 index = content.size() / mib * 16;
            memory.limit = options.memory_limit = qrx_decompress_memory(&params, threads) + index;
            failing_source file{image}; // an image in memory needs no buffers for payloads
            const qrx_source source = file.get();
            qrx_reader* opened = nullptr;
            ASSERT_EQ(qrx_reader_open_source(&opened, &source, &options), QRX_OK);
            const reader_ptr reader(opened);
            bytes restored(content.size());
            usize got = 0;
            for (usize begin = 0; begin < content.size(); begin += 777777) {
                const usize length = std::min<usize>(777777, content.size() - begin);
                ASSERT_EQ(qrx_reader_read(reader.get(), begin, &restored[begin], length, &got),
                          QRX_OK);
            }
            EXPECT_TRUE(restored == content);
            EXPECT_EQ(qrx_reader_test(reader.get()), QRX_OK);
        }
    }
}

} // namespace
} // namespace quarnex::test
