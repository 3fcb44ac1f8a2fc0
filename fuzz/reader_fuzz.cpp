// fuzz/reader_fuzz.cpp - random calls of a qrx_reader on any .qrx image
//
//     | control | faults | calls: count | count calls of 7 bytes | image |
//
// The results are compared with those of two plain readers in memory, without threads, that read
// block by block.
#include "api_input.h"
#include "image_input.h"

namespace quarnex::fuzz {
namespace {

constexpr u64 max_memory = 256 * mib; // inputs that need more are skipped
constexpr u32 call_bytes = 7;
constexpr u32 max_calls = 24;

// The control byte.
constexpr u8 any_size = 1;     // the header's original size isn't bounded
constexpr u8 any_block = 2;    // nor its block size
constexpr u8 by_callbacks = 4; // else from memory
constexpr u8 keeps_damaged = 8;
constexpr u32 threads_shift = 4; // 2 bits
constexpr u8 is_limited = 64;    // to the memory that a reader states, unless it searches
constexpr u8 searches = 128;     // for records after damage

// The faults byte: two periods of 4 bits; every n-th read fails, every m-th progress call cancels.
constexpr u8 read_faults_mask = 15;
constexpr u32 cancels_shift = 4;

/// The callbacks of a reader: what they record, and when they fail.
struct callbacks {
    const bytes& image;
    u32 read_period = 0;   // every read_period-th read fails; 0: none
    u32 cancel_period = 0; // likewise
    u32 reads = 0;
    u32 progress_calls = 0;
    u32 failed_reads = 0;
    u64 wanted = 0; // of the last event

    qrx_options options(const qrx_allocator& memory)
    {
        auto made = sized<qrx_options>();
        made.allocator = memory;
        made.event = [](void* context, const qrx_event* event) {
            require(event->struct_size == sizeof *event && event->what != QRX_OK &&
                        is_status(event->what),
                    "an event has a status");
            static_cast<callbacks*>(context)->wanted = event->wanted;
        };
        if (cancel_period != 0) {
            made.progress = [](void* context, uint64_t done, uint64_t total) {
                auto& self = *static_cast<callbacks*>(context);
                require(done <= total, "no more than everything is done");
                return ++self.progress_calls % self.cancel_period == 0 ? 1 : 0;
            };
        }
        made.context = this;
        return made;
    }

    qrx_source source() { return {sizeof(qrx_source), read, image.size(), this}; }

  private:
    static int read(void* context, uint64_t offset, void* dest, size_t size, size_t* got)
    {
        auto& self = *static_cast<callbacks*>(context);
        require(offset <= self.image.size() && size <= self.image.size() - offset,
                "nothing past the end of the source is read");
        const bool fails = self.read_period != 0 && ++self.reads % self.read_period == 0;
        self.failed_reads += fails ? 1 : 0;
        *got = fails ? size / 2 : size;
        std::copy_n(self.image.data() + offset, *got, static_cast<u8*>(dest));
        return fails && self.failed_reads % 2 == 0 ? 5 : 0; // else: a short read
    }
};

/// What an image contains, as plain readers see it.
struct expectation {
    qrx_info info{};
    bool is_canonical = false;      // also where readers ignore differences
    bool has_content = false;       // false if the original is too large
    bytes content;                  // with zeros for damage
    std::vector<qrx_status> blocks; // results of reading each block

    expectation(const bytes& image, u32 flags)
    {
        const reader_ptr strict = open_image(image, flags);
        const reader_ptr lenient = open_image(image, flags | QRX_KEEP_DAMAGED);
        info = info_of(*strict);
        is_canonical = has_canonical_header(image, *strict) && has_canonical_heads(image, *strict);
        has_content = info.original_size <= max_data;
        if (!has_content) return;
        content.resize(in_memory(info.original_size));
        for (u64 block = 0; block < info.block_count; ++block)
            blocks.push_back(read_block(*strict, *lenient, block));
    }

    u64 length() const { return info.original_size; }
    bool has_right_seal() const
    {
        return info.is_sealed == 0 || qrx_crc32(0, content.data(), content.size()) == info.seal;
    }
    usize first_damaged() const
    {
        const auto found =
            std::find_if(blocks.begin(), blocks.end(), [](qrx_status s) { return s != QRX_OK; });
        return static_cast<usize>(found - blocks.begin());
    }
    bool is_damaged() const { return first_damaged() != blocks.size(); }
    /// Of the blocks, then of the seal.
    qrx_status content_status() const
    {
        if (is_damaged()) return blocks[first_damaged()];
        return has_right_seal() ? QRX_OK : QRX_CHECKSUM_MISMATCH;
    }
    qrx_status test_status() const
    {
        if (info.layout != QRX_OK) return info.layout;
        return info.is_sealed != 0 && !is_canonical ? QRX_CORRUPT : content_status();
    }

  private:
    static bool has_canonical_header(const bytes& image, const qrx_reader& reader)
    {
        auto params = sized<qrx_params>();
        require(qrx_reader_params(&reader, &params) == QRX_OK, "a file has parameters");
        qrx_params settled = params;
        const bool is_settled = qrx_params_settle(&settled) == QRX_OK &&
                                std::memcmp(&settled, &params, sizeof params) == 0;
        const auto is_zero = [&](usize offset) { return image[offset] == 0; };
        constexpr std::array<usize, 7> reserved{0, 14, 15, 28, 29, 30, 31};
        return is_settled && params.method != 0 && image[17] == params.filter &&
               std::all_of(reserved.begin(), reserved.end(), is_zero);
    }

    bool has_canonical_heads(const bytes& image, const qrx_reader& reader) const
    {
        constexpr u8 minus_zero = 1; // a displacement
        if (info.block_count == 0) return image.size() <= 36 || image[36] != minus_zero;
        for (u64 block = 0; block < std::min<u64>(info.block_count, 200); ++block) {
            auto place = sized<qrx_block_info>();
            require(qrx_reader_block_info(&reader, block, &place) == QRX_OK,
                    "a block is described");
            if (place.is_found != 0 && image[in_memory(place.offset - 1)] == minus_zero)
                return false;
        }
        return true;
    }

    qrx_status read_block(qrx_reader& strict, qrx_reader& lenient, u64 block)
    {
        u8* const dest = content.data() + block * info.block_size;
        const usize room = in_memory(content.size() - block * info.block_size);
        usize size = 0;
        const qrx_status result = qrx_reader_block(&strict, block, dest, room, &size);
        const qrx_status kept = qrx_reader_block(&lenient, block, dest, room, &size);
        require(kept == QRX_OK, "a lenient reader reads any block");
        require(size == std::min<u64>(room, info.block_size), "a block has its length");
        return result != QRX_CHECKSUM_MISMATCH ? result : QRX_OK;
    }
};

/// A buffer between two guard areas.
class guarded_buffer {
  public:
    explicit guarded_buffer(usize size) : bytes_(size + 2 * guard, fill), size_(size) {}
    ~guarded_buffer()
    {
        const auto is_fill = [](u8 byte) { return byte == fill; };
        require(std::all_of(bytes_.begin(), bytes_.begin() + guard, is_fill) &&
                    std::all_of(bytes_.end() - guard, bytes_.end(), is_fill),
                "nothing outside the destination is written");
    }
    guarded_buffer(const guarded_buffer&) = delete;
    guarded_buffer& operator=(const guarded_buffer&) = delete;

    u8* data() { return bytes_.data() + guard; }
    usize size() const { return size_; }

  private:
    static constexpr std::ptrdiff_t guard = 4096;
    static constexpr u8 fill = 0xA5;
    bytes bytes_;
    const usize size_;
};

/// The reader under test, and what it should deliver.
class session {
  public:
    session(qrx_reader* reader, const expectation& expected, const callbacks& events, u8 control)
        : reader_(reader), expected_(expected), events_(events),
          keeps_damaged_((control & keeps_damaged) != 0)
    {
        check_info();
    }

    void call(input_bytes& input)
    {
        const u32 kind = input.take();
        const u64 offset = input.take(3);
        const usize size = input.take(3) % (2 * mib + 1);
        switch (kind % 8) {
        case 0:
        case 1:
            return read(offset_of(offset), size);
        case 2:
        case 3:
            return read(next_, size);
        case 4:
            return read_block(offset % 8);
        case 5:
            return read_payload(offset % 8);
        case 6:
            return check_info();
        default:
            return test();
        }
    }

  private:
    const qrx_info& info() const { return expected_.info; }
    bool can_fail() const { return events_.read_period != 0 || events_.cancel_period != 0; }
    u64 offset_of(u64 number) const
    {
        return expected_.has_content ? number % (info().original_size + 2) : number << 40;
    }

    void read(u64 offset, usize size)
    {
        guarded_buffer dest(size);
        usize got = SIZE_MAX;
        const qrx_status result = qrx_reader_read(reader_.get(), offset, dest.data(), size, &got);
        const u64 left = offset < expected_.length() ? expected_.length() - offset : 0;
        require(got <= std::min<u64>(size, left), "no more than is there is read");
        require(result != QRX_OK || got == std::min<u64>(size, left), "everything is read");
        check_data(offset, dest.data(), got);
        check_result(result, offset + got);
        next_ = offset + got;
    }

    void read_block(u64 block)
    {
        guarded_buffer dest(in_memory(std::min<u64>(info().block_size, 2 * mib)));
        usize size = 0;
        const qrx_status result =
            qrx_reader_block(reader_.get(), block, dest.data(), dest.size(), &size);
        if (block >= info().block_count)
            return require(result == QRX_BAD_ARGUMENT, "only blocks of the file can be read");
        if (result == QRX_BUFFER_TOO_SMALL) return;
        const u64 start = block * info().block_size;
        require(size <= dest.size(), "a block fits");
        check_data(start, dest.data(), size);
        check_result(result, start + size);
    }

    void read_payload(u64 block)
    {
        auto place = sized<qrx_block_info>();
        const bool is_known = qrx_reader_block_info(reader_.get(), block, &place) == QRX_OK;
        require(is_known == (block < info().block_count), "each block has information");
        if (!is_known) return;
        guarded_buffer dest(in_memory(place.payload_size));
        usize size = SIZE_MAX;
        const qrx_status result =
            qrx_reader_payload(reader_.get(), block, dest.data(), dest.size(), &size);
        if (events_.read_period != 0 && result != QRX_OK) return;
        require(result == (place.is_found != 0 ? QRX_OK : QRX_BLOCK_MISSING),
                "a block that is found has a payload");
        if (result != QRX_OK) return;
        require(size == place.payload_size && std::equal(dest.data(), dest.data() + size,
                                                         events_.image.data() + place.offset),
                "the payload is that of the file");
    }

    void check_info()
    {
        const qrx_info now = info_of(*reader_);
        require(std::memcmp(&now, &info(), sizeof now) == 0, "the information doesn't change");
        require(now.blocks_found <= now.block_count && now.stored_blocks <= now.blocks_found,
                "no more blocks are found than there are");
        require(now.layout != QRX_OK || now.blocks_found == now.block_count,
                "a good layout has all blocks");
        auto params = sized<qrx_params>();
        require(qrx_reader_params(reader_.get(), &params) == QRX_OK, "a file has parameters");
        u64 found = 0;
        for (u64 block = 0; block < std::min<u64>(now.block_count, 200); ++block) {
            auto place = sized<qrx_block_info>();
            require(qrx_reader_block_info(reader_.get(), block, &place) == QRX_OK,
                    "each block has information");
            found += place.is_found;
            require(place.length <= now.block_size &&
                        place.original_offset + place.length <= now.original_size &&
                        place.offset + place.payload_size <= now.file_size,
                    "blocks are in their files");
        }
        require(found <= now.blocks_found, "blocks are counted");
    }

    void test()
    {
        const qrx_status result = qrx_reader_test(reader_.get());
        require(is_status(result), "a test returns a status");
        if (expected_.has_content && !can_fail())
            require(result == expected_.test_status(), "a test finds the first fault");
    }

    void check_data(u64 offset, const u8* data, usize size)
    {
        const bool is_certain = !keeps_damaged_ || events_.read_period == 0;
        if (!expected_.has_content || !is_certain || size == 0) return;
        require(std::equal(data, data + size, expected_.content.data() + offset),
                "the content is delivered");
    }

    /// Checks the result of reading up to `end`.
    void check_result(qrx_status result, u64 end)
    {
        require(is_status(result) && result != QRX_BAD_ARGUMENT && result != QRX_NO_MEMORY,
                "a read that is possible is done");
        if (can_fail() || !expected_.has_content || result == QRX_OK) return;
        require(!keeps_damaged_, "a lenient reader reads everything");
        if (result == QRX_CHECKSUM_MISMATCH)
            return require(!expected_.is_damaged() && !expected_.has_right_seal(),
                           "a right seal is accepted");
        require(end < expected_.length() &&
                    result == expected_.blocks[in_memory(end / info().block_size)],
                "a read ends at the damage");
    }

    const reader_ptr reader_;
    const expectation& expected_;
    const callbacks& events_;
    const bool keeps_damaged_;
    u64 next_ = 0;
};

/// Opens the reader under test; null if that fails.
qrx_reader* open_reader(u8 control, callbacks& events, const qrx_options& options,
                        qrx_status& result)
{
    qrx_reader* reader = nullptr;
    const qrx_source source = events.source();
    result = (control & by_callbacks) != 0 ? qrx_reader_open_source(&reader, &source, &options)
                                           : qrx_reader_open_memory(&reader, events.image.data(),
                                                                    events.image.size(), &options);
    require((reader != nullptr) == (result == QRX_OK), "a reader is opened, or null");
    require(is_status(result), "opening returns a status");
    return reader;
}

/// Returns the bytes that a reader needs; 0 if the image has no header.
u64 needed_memory(const bytes& image, u32 threads)
{
    callbacks events{image};
    qrx_options options = events.options({});
    options.threads = threads;
    options.memory_limit = 1;
    qrx_status result = QRX_OK;
    open_reader(0, events, options, result);
    return result == QRX_OVER_LIMIT ? events.wanted : 0;
}

/// Decompresses the image in one call.
void restore(const bytes& image, const expectation& expected, qrx_options options)
{
    guarded_buffer dest(in_memory(expected.length()));
    usize size = SIZE_MAX;
    const qrx_status result =
        qrx_decompress(&options, image.data(), image.size(), dest.data(), dest.size(), &size);
    require(size <= dest.size() &&
                std::equal(dest.data(), dest.data() + size, expected.content.data()),
            "qrx_decompress() delivers the content");
    if (options.progress != nullptr) return;
    const qrx_status content = expected.content_status();
    if ((options.flags & QRX_KEEP_DAMAGED) != 0)
        return require(result == QRX_OK, "a lenient qrx_decompress() succeeds");
    require(result == (content != QRX_OK ? content : expected.info.layout),
            "qrx_decompress() finds the first fault");
    const bool is_cut = expected.is_damaged();
    require(size == (is_cut ? expected.first_damaged() * expected.info.block_size : dest.size()),
            "qrx_decompress() ends at the damage");
}

void read_any(input_bytes input)
{
    const u8 control = static_cast<u8>(input.take());
    const u8 faults = static_cast<u8>(input.take());
    const u32 calls = input.take() % (max_calls + 1);
    input_bytes call_input(input.take_bytes(usize{calls} * call_bytes));
    bytes image(input.rest().begin(), input.rest().end());
    bound_sizes(
        {.original_size = (control & any_size) == 0, .block_size = (control & any_block) == 0},
        image);
    const u32 threads = std::min(control >> threads_shift & 3U, 2U);
    const u32 search = (control & searches) != 0 ? QRX_SEARCH : 0;
    const bool has_limit = (control & is_limited) != 0 && search == 0;
    const u64 needed = needed_memory(image, threads);

    callbacks events{.image = image,
                     .read_period = (control & by_callbacks) != 0 ? faults & read_faults_mask : 0U,
                     .cancel_period = u32{faults} >> cancels_shift};
    if (needed > max_memory) return;
    counting_allocator memory(has_limit && needed != 0 ? needed : UINT64_MAX);
    qrx_options options = events.options(memory.get());
    options.threads = threads;
    options.flags = search | ((control & keeps_damaged) != 0 ? QRX_KEEP_DAMAGED : 0);
    options.memory_limit = has_limit ? needed : 0;
    qrx_status result = QRX_OK;
    qrx_reader* const reader = open_reader(control, events, options, result);
    require(result == QRX_OK ? needed != 0 || search != 0 : needed == 0 || events.failed_reads != 0,
            "an image with a header opens");
    if (reader == nullptr) return;
    const expectation expected(image, search);
    {
        session calls_of_reader(reader, expected, events, control);
        while (!call_input.empty()) calls_of_reader.call(call_input);
    }
    if (expected.has_content) restore(image, expected, options);
}

bytes call(u8 kind, u32 offset, u32 size)
{
    const auto byte = [](u32 number, u32 i) { return static_cast<u8>(number >> (8 * i)); };
    return {kind,          byte(offset, 0), byte(offset, 1), byte(offset, 2),
            byte(size, 0), byte(size, 1),   byte(size, 2)};
}

/// Calls of all kinds, across block borders.
bytes some_calls()
{
    const std::vector<bytes> calls = {
        call(0, 100, 5000),       call(2, 0, 70000), call(0, mib - 10, 20), call(7, 0, 0),
        call(2, 0, 2 * mib),      call(4, 1, 0),     call(5, 1, 0),         call(6, 0, 0),
        call(0, 0, 2 * mib),      call(2, 0, mib),   call(2, 0, 2 * mib),   call(4, 0, 0),
        call(0, 2 * mib + 5, 100)};
    bytes all{static_cast<u8>(calls.size())};
    for (const bytes& each : calls) all.insert(all.end(), each.begin(), each.end());
    return all;
}

bytes seed_of(u8 control, u8 faults, const bytes& image)
{
    return test::joined({{control, faults}, some_calls(), image});
}

} // namespace

std::vector<bytes> make_seeds()
{
    std::vector<bytes> seeds;
    for (const u8 flags : {u8{0}, by_callbacks, keeps_damaged})
        for (const std::vector<bytes>& images : {damaged_files(), several_blocks()})
            for (const bytes& image : images) seeds.push_back(seed_of(searches | flags, 0, image));
    const std::vector<bytes> files = several_blocks();
    for (u32 threads = 0; threads <= 2; ++threads) {
        for (const u8 flags : {u8{0}, by_callbacks, keeps_damaged, is_limited,
                               static_cast<u8>(any_size | any_block | keeps_damaged)}) {
            const u8 control = static_cast<u8>(flags | threads << threads_shift);
            for (const bytes& image : files) seeds.push_back(seed_of(control, 0, image));
        }
        const u8 control = static_cast<u8>(by_callbacks | threads << threads_shift);
        for (const bytes& image : files) {
            seeds.push_back(seed_of(control, 0x07, image));
            seeds.push_back(seed_of(control, 0x40, image));
        }
    }
    u8 control = 0;
    for (u8 method = 1; method <= 5; ++method) {
        for (u8 level = 0; level <= 9; ++level) {
            const qrx_params params = params_of(method, level, level % 3);
            control = static_cast<u8>((control + 8) % 128);
            for (const char* const name : {"text", "random", "records"}) {
                const bytes content = test::find_shape(name).make(700, level);
                seeds.push_back(seed_of(control, 0, compressed(params, content, level % 2 == 0)));
            }
            const bytes content = repeated(test::bytes_of("two blocks of few bytes. "), mib + 9);
            if (level < 4) seeds.push_back(seed_of(control, 0, compressed(params, content, true)));
        }
    }
    const auto params = sized<qrx_params>();
    seeds.push_back(seed_of(0, 0, compressed(params, {}, true)));
    return seeds;
}

} // namespace quarnex::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    quarnex::fuzz::read_any(quarnex::fuzz::input_bytes({data, size}));
    return 0;
}
