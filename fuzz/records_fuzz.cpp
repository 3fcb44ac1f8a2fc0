// fuzz/records_fuzz.cpp - indexes the records of any .qrx image, with and without a search
//
//     | control | place, if the image is to be spread | image |
//
// The index is compared with a plain walk over the record heads, and a search in a file that is
// read in windows with one in memory.  On request, the image is made longer than a window.
#include "api_input.h"
#include "image_input.h"
#include "pipeline/header_search.h"
#include "pipeline/record_index.h"
#include "pipeline/record_search.h"

#include <map>
#include <span>

namespace quarnex::fuzz {
namespace {

// The control byte.
constexpr u8 any_size = 1;        // the header's original size isn't bounded
constexpr u8 any_block = 2;       // nor its block size
constexpr u8 searches_header = 4; // also if the header is valid
constexpr u8 spreads = 8;         // bytes are inserted in the middle; see spread()

using block_map = std::map<u32, block_place>;

byte_source memory_source(const bytes& image)
{
    const auto read = [](void* context, u64 offset, u8* dest, usize size, usize& got) {
        const bytes& all = *static_cast<const bytes*>(context);
        require(offset <= all.size(), "nothing past the end of the source is read");
        got = std::min(size, all.size() - static_cast<usize>(offset));
        std::copy_n(all.data() + offset, got, dest);
        return 0;
    };
    return {read, const_cast<bytes*>(&image), image.size(), image.data()};
}

/// The same without the content in memory.
byte_source file_source(const bytes& image)
{
    byte_source source = memory_source(image);
    source.image = nullptr;
    return source;
}

/// Collects notices.
struct recorder {
    std::vector<notice> notices;

    listener watcher()
    {
        const auto tell = [](void* context, const notice& found) {
            require(found.what != status::done, "a notice has a fault");
            static_cast<recorder*>(context)->notices.push_back(found);
        };
        return {tell, nullptr, this};
    }
};

bool is_same_notice(const notice& a, const notice& b)
{
    return a.what == b.what && a.block == b.block && a.offset == b.offset && a.wanted == b.wanted &&
           a.got == b.got;
}

/// Memory for an index: the system's, up to a limit.
class limited_memory {
  public:
    limited_memory() = default;
    limited_memory(const limited_memory&) = delete;
    limited_memory& operator=(const limited_memory&) = delete;
    ~limited_memory() { require(used_ == 0, "all memory is released"); }

    void set_limit(u64 limit) { limit_ = limit; }
    const allocator& get() const { return allocator_; } // the memory keeps a reference to it

  private:
    static void* allocate(void* context, usize size, memory_kind kind)
    {
        auto& self = *static_cast<limited_memory*>(context);
        self.used_ += size;
        require(self.used_ <= self.limit_, "an index needs no more memory than it states");
        return system_allocator.allocate(system_allocator.context, size, kind);
    }
    static void release(void* context, void* memory, usize size, memory_kind kind)
    {
        static_cast<limited_memory*>(context)->used_ -= size;
        system_allocator.release(system_allocator.context, memory, size, kind);
    }

    const allocator allocator_{allocate, release, this};
    u64 limit_ = 0;
    u64 used_ = 0;
};

/// The records of an image up to the first invalid or truncated one, by a simple loop.
struct plain_walk {
    block_map found;
    bool is_complete = false;
    bool has_repeated = false;

    plain_walk(const bytes& image, const file_layout& layout)
    {
        usize at = file_header_bytes;
        for (u32 record = 0; record < layout.record_count(); ++record) {
            if (image.size() - at < record_head_bytes) return;
            const record_head head = unpack_record_head(&image[at]);
            at += record_head_bytes;
            const i64 sign = (head.displacement & 1) != 0 ? -1 : 1;
            const i64 block = i64{record} + sign * (head.displacement >> 1);
            if (block < 0 || block >= layout.record_count()) return;
            const u64 start = static_cast<u64>(block) * layout.parameters.block_size();
            const u64 length =
                std::min(layout.original_size - start, layout.parameters.block_size());
            const bool is_coded = head.size < length;
            if (length > INT32_MAX || head.size > length) return;
            if (is_coded && !is_method(layout.parameters.codec.method)) return;
            if (head.size > image.size() - at) return;
            const auto [place, is_new] =
                found.insert({static_cast<u32>(block), {at, head.size, false}});
            has_repeated = has_repeated || !is_new;
            at += head.size;
        }
        is_complete = true;
    }
};

bool is_same(const block_map& a, const block_map& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
        return x.first == y.first && x.second.offset == y.second.offset &&
               x.second.size == y.second.size;
    });
}

/// An index of an image, and what it reported.
class checked_index {
  public:
    checked_index(const byte_source& file, bool searches) : index_(searches)
    {
        recorder failures;
        const listener watcher = failures.watcher();
        has_header_ = index_.read_header(file, watcher) == status::done;
        require(has_header_ == failures.notices.empty(), "a header that isn't read is reported");
        if (!has_header_) return;
        memory_.set_limit(index_.memory_needed(file) + index_.search_memory(file));
        recorder first, again;
        for (recorder* const damage : {&first, &damage_, &again}) {
            require(index_.read_records(memory_.get(), file, watcher, damage->watcher()) ==
                            status::done &&
                        failures.notices.empty(),
                    "damage is no failure");
            block_map found = collect(file);
            require(damage == &first || is_same(found, found_), "later calls change nothing");
            found_ = std::move(found);
        }
        require(std::equal(damage_.notices.begin(), damage_.notices.end(), again.notices.begin(),
                           again.notices.end(), is_same_notice),
                "later calls report the same damage");
        const bool is_good = index_.layout_fault() == status::done;
        require(is_good == first.notices.empty() && is_good == damage_.notices.empty(),
                "a fault of the layout is reported by each call");
        require(is_good || index_.layout_fault() == damage_.notices.front().what,
                "the fault of the layout is the first one reported");
    }

    bool has_header() const { return has_header_; }
    const file_layout& layout() const { return index_.layout(); }
    const block_map& found() const { return found_; }
    const record_index& index() const { return index_; }
    const std::vector<notice>& damage() const { return damage_.notices; }

  private:
    block_map collect(const byte_source& file) const
    {
        block_map found;
        u32 stored = 0;
        for (u32 block = index_.skip_to(0, true); index_.find(block) != nullptr;
             block = index_.skip_to(block + 1, true)) {
            const block_place& place = *index_.find(block);
            require(place.offset >= file_header_bytes + record_head_bytes &&
                        place.offset <= file.size && place.size <= file.size - place.offset,
                    "a payload is in the file, after its head");
            require(place.size <= index_.length_of(block), "a payload isn't longer than its block");
            stored += place.size == index_.length_of(block) ? 1 : 0;
            found.insert({block, place});
        }
        require(index_.found() == found.size() && index_.stored() == stored,
                "the records are counted");
        require_disjoint(found);
        return found;
    }

    static void require_disjoint(const block_map& found)
    {
        std::map<u64, u64> ends;
        for (const auto& [block, place] : found)
            ends.insert({place.offset - record_head_bytes, place.offset + place.size});
        require(ends.size() == found.size(), "blocks have different records");
        u64 last = 0;
        for (const auto& [begin, end] : ends) {
            require(begin >= last, "records don't overlap");
            last = end;
        }
    }

    limited_memory memory_; // outlives the index
    record_index index_;
    bool has_header_ = false;
    block_map found_;
    recorder damage_;
};

void check_index(const bytes& image)
{
    const checked_index plain(file_source(image), false);
    const checked_index windows(file_source(image), true);
    const checked_index whole(memory_source(image), true);
    require(plain.has_header() == windows.has_header() && whole.has_header() == plain.has_header(),
            "a search needs the same header");
    if (!plain.has_header()) return;
    const plain_walk walk(image, plain.layout());
    require(is_same(plain.found(), walk.found), "an index has the records of a plain walk");
    require(is_same(windows.found(), whole.found()) &&
                windows.index().seal() == whole.index().seal(),
            "windows don't change what a search finds");
    require(std::equal(windows.damage().begin(), windows.damage().end(), whole.damage().begin(),
                       whole.damage().end(), is_same_notice),
            "windows don't change what is reported");
    // A search takes an empty payload for damage.
    const bool is_good = plain.index().layout_fault() == status::done &&
                         std::all_of(plain.found().begin(), plain.found().end(),
                                     [](const auto& block) { return block.second.size != 0; });
    if (is_good)
        require(is_same(windows.found(), plain.found()), "nothing is searched for in a good file");
}

void check_header(const bytes& image, bool is_valid)
{
    std::optional<file_layout> from_file, from_memory;
    recorder failures;
    require(find_layout(system_allocator, UINT64_MAX, file_source(image), failures.watcher(),
                        is_valid, from_file) == status::done &&
                find_layout(system_allocator, UINT64_MAX, memory_source(image), failures.watcher(),
                            is_valid, from_memory) == status::done &&
                failures.notices.empty(),
            "a search for a header doesn't fail");
    require(from_file.has_value() == from_memory.has_value(), "both searches find a header");
    if (!from_file) return;
    const file_layout& layout = *from_file;
    require(layout.original_size == from_memory->original_size &&
                layout.block_count == from_memory->block_count &&
                layout.parameters.block_mb == from_memory->parameters.block_mb &&
                layout.parameters.codec.method == from_memory->parameters.codec.method,
            "both searches find the same header");
    require(layout.block_count ==
                    count_blocks(layout.original_size, layout.parameters.block_size()) &&
                layout.block_count <= image.size() / record_head_bytes + 127,
            "a header found has as many blocks as the file can have");
}

/// Inserts bytes that look like no record, so that the image has two windows.  The one read first
/// starts at `place` 256ths of the original image.
void spread(bytes& image, usize place)
{
    const usize start = image.size() * place / 256;
    constexpr usize unscanned = record_head_bytes - 1; // at the end of the file
    const usize inserted = search_window_bytes + unscanned + start - image.size();
    image.insert(image.begin() + static_cast<std::ptrdiff_t>(image.size() / 2), inserted, 0);
}

void index_any(std::span<const u8> input)
{
    if (input.empty()) return;
    const u8 control = input[0];
    const bool is_spread = (control & spreads) != 0 && input.size() > 1;
    bytes image(input.begin() + (is_spread ? 2 : 1), input.end());
    bound_sizes(
        {.original_size = (control & any_size) == 0, .block_size = (control & any_block) == 0},
        image);
    if (is_spread && image.size() < search_window_bytes) spread(image, input[1]);
    check_index(image);
    if (image.size() < file_header_bytes) return;
    recorder failures;
    record_index index(false);
    const bool is_valid =
        index.read_header(memory_source(image), failures.watcher()) == status::done;
    if (!is_valid || (control & searches_header) != 0) check_header(image, is_valid);
}

} // namespace

std::vector<bytes> make_seeds()
{
    std::vector<bytes> seeds;
    for (const std::vector<bytes>& images : {several_blocks(), damaged_files()}) {
        for (const bytes& image : images) {
            for (const u8 control : {u8{0}, searches_header, u8{any_size | any_block}})
                seeds.push_back(test::joined({{control}, image}));
            seeds.push_back(test::joined({{spreads, 0}, image}));
            seeds.push_back(test::joined({{spreads | searches_header, 128}, image}));
        }
    }
    // Files of many records, each a few bytes long.
    const auto params = sized<qrx_params>();
    for (const usize blocks : {2U, 3U, 4U}) {
        bytes image = compressed(params, bytes(blocks * mib, 7), blocks % 2 == 0);
        seeds.push_back(test::joined({{searches_header}, image}));
        image.erase(image.begin() + 34);
        seeds.push_back(test::joined({{0}, image}));
        for (u32 place = 0; place < 256; place += 4) // a window that starts within a head, too
            seeds.push_back(test::joined({{spreads, static_cast<u8>(place)}, image}));
    }
    return seeds;
}

} // namespace quarnex::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    quarnex::fuzz::index_any({data, size});
    return 0;
}
