// fuzz/writer_fuzz.cpp - writes a file by random calls of a qrx_writer and reads it back
//
//     | parameters: 6 bytes | control | flags | writes: count | count writes of 3 bytes | content |
//
// The content is repeated to more than a block if the control byte says so.
#include "api_input.h"
#include "support/qrx_file.h"

namespace quarnex::fuzz {
namespace {

using test::header_bytes;

constexpr u32 write_bytes = 3;
constexpr u32 max_writes = 24;

// The control byte, besides repeats_mask.
constexpr u8 is_sealed = 4;
constexpr u8 has_size = 8;      // the size is given at the start
constexpr u8 is_limited = 16;   // to qrx_compress_memory()
constexpr u8 cancels = 32;      // at the last progress call
constexpr u8 is_sum_given = 64; // raw blocks come with their CRC-32
constexpr u8 sink_fails = 128;  // at the last write

/// What to write, and how.
struct plan {
    qrx_params params;
    u8 control = 0;
    std::span<const u8> writes; // write_bytes each; repeated as long as content is left
    bytes content;
    bytes other_image; // of the same content and parameters

    bool has(u8 flag) const { return (control & flag) != 0; }
};

plan take_plan(input_bytes& input)
{
    plan made;
    made.params = take_params(input);
    made.control = static_cast<u8>(input.take());
    made.writes = input.take_bytes(usize{input.take() % max_writes} * write_bytes);
    made.content = take_content(input, made.params, made.control);
    made.other_image = compressed(made.params, made.content, false);
    return made;
}

/// A sink that requires the order of offsets that is promised.
struct image_sink {
    explicit image_sink(bool header_is_first) : is_header_written(header_is_first)
    {
        if (!header_is_first) image.resize(header_bytes);
    }

    qrx_sink get() { return {sizeof(qrx_sink), write, this}; }

    bytes image;
    u32 writes = 0;
    u32 failing_write = 0; // 0: none

  private:
    static int write(void* context, uint64_t offset, const void* src, size_t size)
    {
        auto& self = *static_cast<image_sink*>(context);
        if (++self.writes == self.failing_write) return 28;
        const auto* const data = static_cast<const u8*>(src);
        if (!self.is_header_written && offset == 0) {
            require(size == header_bytes, "a late header has its size");
            std::copy_n(data, size, self.image.begin());
            self.is_header_written = true;
            return 0;
        }
        require(offset == self.image.size(), "offsets rise without gaps");
        self.image.insert(self.image.end(), data, data + size);
        return 0;
    }

    bool is_header_written;
};

/// Writes the content of a plan.
class session {
  public:
    session(const plan& written, u32 threads) : plan_(written), sink_(written.has(has_size))
    {
        options_ = sized<qrx_options>();
        options_.threads = threads;
        options_.flags = written.has(is_sealed) ? QRX_SEAL : 0;
        options_.event = [](void*, const qrx_event* event) {
            require(event->what != QRX_OK && is_status(event->what), "an event has a status");
        };
        options_.progress = [](void* context, uint64_t done, uint64_t) {
            auto& self = *static_cast<session*>(context);
            require(done <= self.plan_.content.size(), "no more than everything is done");
            return ++self.progress_calls_ == self.cancelled_call_ ? 1 : 0;
        };
        options_.context = this;
        if (written.has(is_limited))
            options_.memory_limit = qrx_compress_memory(&written.params, threads);
    }
    session(const session&) = delete;
    session& operator=(const session&) = delete;

    /// Makes a progress call or a write of the sink fail, counted from 1; 0 for none.
    void fail(u32 progress_call, u32 write)
    {
        cancelled_call_ = progress_call;
        sink_.failing_write = write;
    }
    u32 progress_calls() const { return progress_calls_; }
    u32 sink_writes() const { return sink_.writes; }
    const bytes& image() const { return sink_.image; }

    /// Returns the status of the first call that fails.
    qrx_status write()
    {
        counting_allocator memory(options_.memory_limit != 0 ? options_.memory_limit : UINT64_MAX);
        options_.allocator = memory.get();
        const qrx_sink sink = sink_.get();
        const u64 size = plan_.has(has_size) ? plan_.content.size() : QRX_UNKNOWN_SIZE;
        qrx_status result = qrx_writer_open_sink(&writer_, &sink, size, &plan_.params, &options_);
        require((writer_ != nullptr) == (result == QRX_OK), "a writer is opened, or null");
        if (result == QRX_OK) result = write_all();
        if (result == QRX_OK) result = qrx_writer_finish(writer_);
        if (writer_ != nullptr && result != QRX_OK)
            require(qrx_writer_finish(writer_) != QRX_OK, "a failure lasts");
        qrx_writer_close(writer_);
        writer_ = nullptr;
        return result;
    }

  private:
    usize left() const { return plan_.content.size() - done_; }
    const u8* next() const { return plan_.content.data() + done_; }

    qrx_status write_all()
    {
        for (usize at = 0; left() != 0; at += write_bytes) {
            if (at >= plan_.writes.size()) {
                if (at == 0 || is_stuck_) return append(left());
                is_stuck_ = true; // unless the next round appends something
                at = 0;
            }
            input_bytes piece(plan_.writes.subspan(at, write_bytes));
            const u32 kind = piece.take();
            const qrx_status result = write_piece(kind, usize{piece.take(2)} << (kind >> 4 & 7));
            if (result != QRX_OK) return result;
        }
        return QRX_OK;
    }

    qrx_status write_piece(u32 kind, usize size)
    {
        switch (kind % 8) {
        case 0:
        case 1:
            return append(std::min(size, left()));
        case 2:
        case 3:
            return fill(size);
        case 4:
        case 5:
            return append_raw();
        case 6:
            return misuse();
        default:
            return abandon_loan();
        }
    }

    qrx_status advanced(usize size, qrx_status result)
    {
        if (size != 0) is_stuck_ = false;
        done_ += size;
        return result;
    }

    qrx_status append(usize size)
    {
        const bytes copy(next(), next() + size);
        return advanced(size, qrx_writer_write(writer_, copy.data(), size));
    }

    qrx_status fill(usize size)
    {
        void* dest = nullptr;
        usize room = 0;
        const qrx_status lent = qrx_writer_buffer(writer_, &dest, &room);
        if (lent != QRX_OK) return lent;
        require(room != 0 && room <= mib, "a loan has room");
        size = std::min({size, room, left()});
        std::copy_n(next(), size, static_cast<u8*>(dest));
        return advanced(size, qrx_writer_advance(writer_, size));
    }

    /// Appends a block from the other image, which must be refused except at a block boundary.
    qrx_status append_raw()
    {
        const reader_ptr reader = open_image(plan_.other_image);
        auto place = sized<qrx_block_info>();
        const u64 block = done_ / mib;
        if (qrx_reader_block_info(reader.get(), block, &place) != QRX_OK) return QRX_OK;
        bytes payload(in_memory(place.payload_size));
        const usize length = in_memory(place.length);
        usize size = 0;
        require(qrx_reader_payload(reader.get(), block, payload.data(), payload.size(), &size) ==
                    QRX_OK,
                "a written block has a payload");
        const u32 sum = qrx_crc32(0, next(), std::min<usize>(length, left()));
        const qrx_status result = qrx_writer_raw_block(writer_, payload.data(), size, length,
                                                       plan_.has(is_sum_given) ? &sum : nullptr);
        if (done_ % mib == 0) return advanced(length, result);
        require(result != QRX_OK, "raw blocks are appended at borders only");
        return result == QRX_BAD_ARGUMENT ? QRX_OK : result;
    }

    /// Makes calls that must be refused and must not change anything.
    qrx_status misuse()
    {
        require(qrx_writer_write(writer_, nullptr, 1) == QRX_BAD_ARGUMENT, "null is refused");
        require(qrx_writer_advance(writer_, 1) != QRX_OK, "an advance needs a loan");
        u8 byte = 0;
        require(qrx_writer_raw_block(writer_, &byte, 1, mib + 1, nullptr) != QRX_OK &&
                    qrx_writer_raw_block(writer_, &byte, 1, 0, nullptr) != QRX_OK,
                "impossible raw blocks are refused");
        return QRX_OK;
    }

    /// Takes a loan that another call ends.
    qrx_status abandon_loan()
    {
        void* dest = nullptr;
        usize room = 0;
        const qrx_status lent = qrx_writer_buffer(writer_, &dest, &room);
        if (lent != QRX_OK) return lent;
        std::memset(dest, 0xEE, room);
        const usize before = done_;
        const qrx_status result = append_raw();
        if (result == QRX_OK && done_ != before)
            require(qrx_writer_advance(writer_, 1) != QRX_OK, "a raw block ends a loan");
        return result;
    }

    const plan& plan_;
    image_sink sink_;
    qrx_options options_;
    qrx_writer* writer_ = nullptr;
    usize done_ = 0; // bytes of the content
    bool is_stuck_ = true;
    u32 progress_calls_ = 0;
    u32 cancelled_call_ = 0;
};

void check_reader(const plan& written, const bytes& image)
{
    const reader_ptr reader = open_image(image);
    const bytes& content = written.content;
    const qrx_info info = info_of(*reader);
    require(info.original_size == content.size() && info.layout == QRX_OK &&
                (info.is_sealed != 0) == written.has(is_sealed),
            "a written file has its size and its seal");
    require(info.is_sealed == 0 || info.seal == qrx_crc32(0, content.data(), content.size()),
            "the seal is the checksum of the content");
    auto params = sized<qrx_params>();
    require(qrx_reader_params(reader.get(), &params) == QRX_OK &&
                std::memcmp(&params, &written.params, sizeof params) == 0,
            "a written file has its parameters");
    test::random_source random(image.size());
    for (u32 n = 0; n < 6 && !content.empty(); ++n) {
        const usize offset = random.below(static_cast<u32>(content.size()));
        bytes part(random.below(static_cast<u32>(content.size() - offset)) + 1);
        usize got = 0;
        require(qrx_reader_read(reader.get(), offset, part.data(), part.size(), &got) == QRX_OK &&
                    got == part.size() &&
                    std::equal(part.begin(), part.end(),
                               content.begin() + static_cast<std::ptrdiff_t>(offset)),
                "any part can be read");
    }
    require(qrx_reader_test(reader.get()) == QRX_OK, "a written file passes the test");
}

void check_restored(const plan& written, const bytes& image)
{
    auto options = sized<qrx_options>();
    options.threads = written.control % 3;
    u64 size = 0;
    require(qrx_decompressed_size(image.data(), image.size(), &size) == QRX_OK &&
                size == written.content.size(),
            "the size is that of the content");
    bytes restored(written.content.size());
    usize got = 0;
    require(qrx_decompress(&options, image.data(), image.size(), restored.data(), restored.size(),
                           &got) == QRX_OK &&
                got == size && restored == written.content,
            "the content is restored");
}

/// Writes once more, with a failure of the last progress call or of the last write.
void write_with_failure(const plan& written, u32 threads, u32 progress_calls, u32 sink_writes)
{
    session failing(written, threads);
    failing.fail(written.has(cancels) ? progress_calls : 0,
                 written.has(sink_fails) ? sink_writes : 0);
    const qrx_status result = failing.write();
    require(result == QRX_CANCELLED || result == QRX_WRITE_FAILED, "a failure is returned");
    require((result == QRX_CANCELLED) ? written.has(cancels) : written.has(sink_fails),
            "the failure is the one that was caused");
}

void write_and_read(input_bytes input)
{
    const plan written = take_plan(input);
    bytes first;
    for (u32 threads = 0; threads <= 2; ++threads) {
        session writing(written, threads);
        require(writing.write() == QRX_OK, "everything can be written");
        if (threads == 0) {
            first = writing.image();
            check_reader(written, first);
            check_restored(written, first);
        }
        require(writing.image() == first, "threads don't change the file");
        if (written.has(cancels | sink_fails))
            write_with_failure(written, threads, writing.progress_calls(), writing.sink_writes());
    }
    const bytes whole = compressed(written.params, written.content, written.has(is_sealed));
    require(whole == first, "pieces don't change the file");
}

bytes seed_of(u8 method, u8 level, u8 control, const bytes& writes, const bytes& content)
{
    const u8 count = static_cast<u8>(writes.size() / write_bytes);
    return test::joined(
        {params_input(method, level, level % 3), {control, count}, writes, content});
}

} // namespace

std::vector<bytes> make_seeds()
{
    const std::vector<bytes> writes = {
        {},
        {0, 7, 0, 2, 50, 0, 6, 0, 0, 3, 0, 0},            // write(), buffer(), misuse
        {4, 0, 0, 7, 0, 0, 0x70, 0, 0x80, 0x72, 0, 0x90}, // raw blocks and large pieces
        {7, 0, 0, 0x73, 0xFF, 0xFF},
        {0x70, 0, 0x20, 4, 0, 0},
    };
    std::vector<bytes> seeds;
    u8 control = 0;
    for (u8 method = 1; method <= 5; ++method) {
        for (const u8 level : bytes{0, 1, 3, 5, 8, 9}) {
            for (const bytes& each : writes) {
                control = static_cast<u8>(control + 53);
                const char* const name = control % 2 == 0 ? "text" : "random";
                seeds.push_back(
                    seed_of(method, level, control, each, test::find_shape(name).make(600, level)));
            }
        }
    }
    seeds.push_back(seed_of(1, 1, is_sealed, {}, {}));
    return seeds;
}

} // namespace quarnex::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    quarnex::fuzz::write_and_read(quarnex::fuzz::input_bytes({data, size}));
    return 0;
}
