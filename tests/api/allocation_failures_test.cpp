// Every allocation of the C interface fails once: in all calls that allocate, with and without
// threads.
#include "api/api_fixture.h"
#include "support/waiting.h"

#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>

namespace quarnex::test {
namespace {

/// A caller's allocator that refuses one call.  Ends the process if memory is released with another
/// size than it was allocated with.
class refusing_memory {
  public:
    /// Refuses call number `call`, counted from 1; 0 for none.
    explicit refusing_memory(u32 call) : refused_call_(call) {}
    refusing_memory(const refusing_memory&) = delete;
    refusing_memory& operator=(const refusing_memory&) = delete;

    qrx_allocator get() { return {allocate, release, this}; }
    /// True if a call was refused.
    bool has_refused()
    {
        const std::lock_guard lock(mutex_);
        return refused_call_ != 0 && calls_ >= refused_call_;
    }
    bool is_all_released()
    {
        const std::lock_guard lock(mutex_);
        return live_.empty();
    }

  private:
    static void* allocate(void* context, size_t size)
    {
        auto& self = *static_cast<refusing_memory*>(context);
        const std::lock_guard lock(self.mutex_);
        if (size == 0) std::abort();
        if (++self.calls_ == self.refused_call_) return nullptr;
        void* const memory = std::malloc(size);
        if (memory == nullptr) std::abort();
        std::memset(memory, 0xA5, std::min<usize>(size, 4096)); // nobody can rely on zeros
        self.live_[memory] = size;
        return memory;
    }

    static void release(void* context, void* memory, size_t size)
    {
        auto& self = *static_cast<refusing_memory*>(context);
        const std::lock_guard lock(self.mutex_);
        const auto made = self.live_.find(memory);
        if (made == self.live_.end() || made->second != size) std::abort();
        self.live_.erase(made);
        std::free(memory);
    }

    const u32 refused_call_;
    std::mutex mutex_;
    u32 calls_ = 0;
    std::map<void*, usize> live_;
};

/// The result of a run with a refused allocation.
struct outcome {
    qrx_status result = QRX_OK;
    bool is_reported = true; // as an event, unless that is impossible
};

/// Options of a run, which count its events.
struct run_options : qrx_options {
    run_options(refusing_memory& memory, u32 thread_count) : qrx_options(sized<qrx_options>())
    {
        threads = thread_count;
        flags = QRX_SEAL;
        allocator = memory.get();
        event = [](void* self_context, const qrx_event* found) {
            auto& self = *static_cast<run_options*>(self_context);
            ++self.events;
            EXPECT_TRUE(found->what == QRX_NO_MEMORY || found->what == QRX_NO_THREAD);
        };
        context = this;
    }
    run_options(const run_options&) = delete;
    run_options& operator=(const run_options&) = delete;

    outcome of(qrx_status result) const { return {result, events != 0}; }

    u32 events = 0;
};

/// What a run works on.
struct sample {
    qrx_params params;
    bytes content;
    bytes image;

    sample(u32 method, u32 level, const bytes& original)
        : params(small_params_of(method, level)), content(original),
          image(compressed(content, params, QRX_SEAL))
    {
    }
};

using run_function = std::function<outcome(refusing_memory&)>;

/// Runs with allocation 1 refused, then allocation 2, and so on until none is.
void refuse_each_allocation(const char* name, u32 min_calls, const run_function& run)
{
    SCOPED_TRACE(name);
    u32 call = 0;
    for (bool has_refused = true; has_refused;) {
        refusing_memory memory(++call);
        const outcome ended = run(memory);
        has_refused = memory.has_refused();
        ASSERT_TRUE(memory.is_all_released()) << call;
        if (ended.result == QRX_OK) continue;
        ASSERT_TRUE(has_refused) << call << ": " << qrx_status_text(ended.result);
        ASSERT_TRUE(ended.result == QRX_NO_MEMORY || ended.result == QRX_NO_THREAD)
            << call << ": " << qrx_status_text(ended.result);
        ASSERT_TRUE(ended.is_reported) << call;
    }
    EXPECT_GT(call, min_calls);
}

/// Expects the image of a sample.  At levels 8 and 9 a block for whose search there is no memory is
/// coded with fewer matches.
void expect_image(const bytes& image, const sample& given, refusing_memory& memory)
{
    if (image == given.image) return;
    EXPECT_TRUE(given.params.level >= 8 && memory.has_refused());
    bytes content(given.content.size());
    usize size = 0;
    EXPECT_EQ(
        qrx_decompress(nullptr, image.data(), image.size(), content.data(), content.size(), &size),
        QRX_OK);
    EXPECT_TRUE(content == given.content);
}

outcome compress(refusing_memory& memory, const sample& given, u32 threads)
{
    run_options options(memory, threads);
    bytes image(qrx_compress_bound(&given.params, given.content.size()));
    usize size = 12345;
    const qrx_status result = qrx_compress(&given.params, &options, given.content.data(),
                                           given.content.size(), image.data(), image.size(), &size);
    if (result == QRX_OK)
        image.resize(size);
    else
        EXPECT_EQ(size, 12345U);
    if (result == QRX_OK) expect_image(image, given, memory);
    return options.of(result);
}

outcome decompress(refusing_memory& memory, const sample& given, u32 threads)
{
    run_options options(memory, threads);
    bytes content(given.content.size());
    usize size = 12345;
    const qrx_status result = qrx_decompress(&options, given.image.data(), given.image.size(),
                                             content.data(), content.size(), &size);
    EXPECT_LE(size, content.size());
    EXPECT_TRUE(result != QRX_OK || size == content.size());
    EXPECT_TRUE(std::equal(content.data(), content.data() + std::min(size, content.size()),
                           given.content.data()));
    return options.of(result);
}

qrx_status read_everything(qrx_reader* reader, const sample& given)
{
    bytes content(given.content.size());
    usize got = 12345;
    const qrx_status result = qrx_reader_read(reader, 0, content.data(), content.size(), &got);
    EXPECT_TRUE(result != QRX_OK || got == content.size());
    EXPECT_TRUE(got <= content.size() &&
                std::equal(content.data(), content.data() + got, given.content.data()));
    return result;
}

/// Opens, reads everything in pieces, tests, and reads everything.
outcome read_and_test(refusing_memory& memory, const sample& given, u32 threads)
{
    run_options options(memory, threads);
    qrx_reader* opened = nullptr;
    qrx_status result =
        qrx_reader_open_memory(&opened, given.image.data(), given.image.size(), &options);
    EXPECT_EQ(opened != nullptr, result == QRX_OK);
    // Without a handle there are no events.
    if (result != QRX_OK) return {result};
    const reader_ptr reader(opened);
    const usize piece = given.content.size() / 3 + 1;
    for (usize offset = 0; offset < given.content.size() && result == QRX_OK; offset += piece) {
        bytes part(piece);
        usize got = 0;
        result = qrx_reader_read(opened, offset, part.data(), piece, &got);
        EXPECT_TRUE(std::equal(part.data(), part.data() + got, given.content.data() + offset));
    }
    if (result == QRX_OK) result = qrx_reader_test(opened);
    if (result == QRX_OK) result = read_everything(opened, given);
    if (result != QRX_OK) { // the reader can be used again
        EXPECT_EQ(read_everything(opened, given), QRX_OK);
        EXPECT_EQ(qrx_reader_test(opened), QRX_OK);
        EXPECT_EQ(read_everything(opened, given), QRX_OK);
    }
    return options.of(result);
}

/// Appends the first block raw, if there are more, and the rest in pieces.
qrx_status write_all(qrx_writer* writer, const sample& given)
{
    usize done = 0;
    if (given.content.size() > mib) {
        const reader_ptr reader = open_image(given.image);
        bytes payload(mib);
        usize size = 0;
        EXPECT_EQ(qrx_reader_payload(reader.get(), 0, payload.data(), payload.size(), &size),
                  QRX_OK);
        const qrx_status result = qrx_writer_raw_block(writer, payload.data(), size, mib, nullptr);
        if (result != QRX_OK) return result;
        done = mib;
    }
    void* dest = nullptr;
    usize room = 0;
    qrx_status result = qrx_writer_buffer(writer, &dest, &room);
    if (result != QRX_OK) return result;
    std::memcpy(dest, given.content.data() + done, 2);
    result = qrx_writer_advance(writer, 2);
    if (result != QRX_OK) return result;
    done += 2;
    result = qrx_writer_write(writer, given.content.data() + done, given.content.size() - done);
    return result == QRX_OK ? qrx_writer_finish(writer) : result;
}

outcome write_to_sink(refusing_memory& memory, const sample& given, u32 threads)
{
    run_options options(memory, threads);
    bytes image;
    const qrx_sink sink = sink_to(image);
    qrx_writer* opened = nullptr;
    qrx_status result =
        qrx_writer_open_sink(&opened, &sink, QRX_UNKNOWN_SIZE, &given.params, &options);
    EXPECT_EQ(opened != nullptr, result == QRX_OK);
    if (result != QRX_OK) return {result};
    const writer_ptr writer(opened);
    result = write_all(opened, given);
    if (result == QRX_OK) expect_image(image, given, memory);
    EXPECT_NE(qrx_writer_finish(opened), QRX_OK) << "finished, or failed before";
    return options.of(result);
}

outcome write_to_file(refusing_memory& memory, const sample& given, u32 threads,
                      const temp_dir& dir)
{
    run_options options(memory, threads);
    const std::string name = dir / "out.qrx";
    qrx_writer* opened = nullptr;
    qrx_status result =
        qrx_writer_open(&opened, name.c_str(), QRX_UNKNOWN_SIZE, &given.params, &options);
    EXPECT_EQ(opened != nullptr, result == QRX_OK);
    if (result == QRX_OK) result = write_all(opened, given);
    qrx_writer_close(opened);
    if (result == QRX_OK) {
        expect_image(read_file(name), given, memory);
        std::filesystem::remove(name);
    }
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
    return {result};
}

outcome code_block(refusing_memory& memory, const sample& given, u32 /*threads*/)
{
    run_options options(memory, 0);
    const usize length = std::min(given.content.size(), mib);
    qrx_codec* opened = nullptr;
    qrx_status result = qrx_codec_new(&opened, &given.params, &options);
    EXPECT_EQ(opened != nullptr, result == QRX_OK);
    if (result != QRX_OK) return {result};
    const codec_ptr codec(opened);
    bytes payload(length + QRX_CODEC_SLACK);
    usize size = 12345;
    const auto compress_once = [&] {
        return qrx_codec_compress(opened, given.content.data(), length, payload.data(),
                                  payload.size(), &size);
    };
    result = compress_once();
    if (result != QRX_OK) { // the codec can be used again
        EXPECT_EQ(size, 12345U);
        EXPECT_EQ(compress_once(), QRX_OK);
    }
    payload.resize(size);
    bytes block(length);
    const auto restore_once = [&] {
        return qrx_codec_decompress(opened, payload.data(), size, block.data(), length);
    };
    const qrx_status restored = restore_once();
    if (restored != QRX_OK) {
        EXPECT_EQ(restore_once(), QRX_OK);
        result = restored;
    }
    EXPECT_TRUE(std::equal(block.begin(), block.end(), given.content.begin()));
    return {result};
}

class interface_allocations : public testing::TestWithParam<u32> {
  protected:
    void check_all_calls(const sample& given) const
    {
        const auto with = [&](auto call) -> run_function {
            return
                [&given, call](refusing_memory& memory) { return call(memory, given, GetParam()); };
        };
        const temp_dir dir;
        const auto to_file = [&](refusing_memory& memory, const sample& data, u32 threads) {
            return write_to_file(memory, data, threads, dir);
        };
        ASSERT_NO_FATAL_FAILURE(refuse_each_allocation("compress", 3, with(compress)));
        ASSERT_NO_FATAL_FAILURE(refuse_each_allocation("decompress", 3, with(decompress)));
        ASSERT_NO_FATAL_FAILURE(refuse_each_allocation("read", 4, with(read_and_test)));
        ASSERT_NO_FATAL_FAILURE(refuse_each_allocation("sink", 4, with(write_to_sink)));
        ASSERT_NO_FATAL_FAILURE(refuse_each_allocation("file", 6, with(to_file)));
        ASSERT_NO_FATAL_FAILURE(refuse_each_allocation("codec", 2, with(code_block)));
    }

    const time_guard guard{100};
};

INSTANTIATE_TEST_SUITE_P(, interface_allocations, testing::Values(0, 2), [](const auto& tested) {
    return std::to_string(tested.param) + "_threads";
});

TEST_P(interface_allocations, fail_in_a_block_of_every_method_and_kind_of_level)
{
    const bytes content = find_shape("text").make(3000, 1);
    for (u32 method = 1; method <= 5; ++method) {
        for (const u32 level : {0U, 5U, 8U, 9U}) {
            SCOPED_TRACE(method * 10 + level);
            ASSERT_NO_FATAL_FAILURE(check_all_calls({method, level, content}));
        }
    }
}

TEST_P(interface_allocations, fail_in_several_blocks)
{
    const bytes content(mib + 5, 'a');
    ASSERT_NO_FATAL_FAILURE(check_all_calls({1, 0, content}));
    ASSERT_NO_FATAL_FAILURE(check_all_calls({4, 3, content}));
}

} // namespace
} // namespace quarnex::test
