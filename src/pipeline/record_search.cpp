#include "pipeline/record_search.h"

#include "common/bytes.h"
#include "format/checksum.h"
#include "pipeline/read_exactly.h"

#include <algorithm>
#include <array>
#include <bit>
#include <tuple>

namespace quarnex {
namespace {

/// Bytes after a window that belong to a head at its last position.
constexpr usize overlap = record_head_bytes - 1;
/// Limits on the anchored positions.  Any beyond the number of records in the file are false.
constexpr u64 spare_anchors = 1000;
constexpr u64 max_anchors = u64{1} << 22;

/// A position from which a chain leads to the end of the file.
struct anchor {
    u64 position = 0; // 0: a free entry of the table
    u32 records = 0;  // from there to the end
    u32 left = 0;     // bytes after the last record, 0 to 4
};

u64 anchor_limit(const file_layout& layout, const byte_source& file)
{
    const u64 fitting = file.size / (record_head_bytes + 1) + 1;
    return std::min({fitting, u64{layout.record_count()}, max_anchors - spare_anchors}) +
           spare_anchors;
}

u64 table_size(u64 anchors)
{
    return std::bit_ceil(2 * anchors);
}

/// A hash table of anchors by position, with linear probing.  Long runs of occupied entries occur
/// only in hostile files.  The number of probes is limited, so a lookup takes constant time;
/// anchors that would need more are dropped.
class anchor_table {
  public:
    [[nodiscard]] bool allocate(const allocator& source, u64 limit)
    {
        const u64 size = table_size(limit);
        places_ = make_zeroed_array<anchor>(source, static_cast<usize>(size));
        mask_ = static_cast<usize>(size - 1);
        left_ = limit;
        return places_ != nullptr;
    }

    const anchor* find(u64 position) const
    {
        const anchor* const place = place_of(position);
        return place != nullptr && place->position != 0 ? place : nullptr;
    }

    /// Adds an anchor unless there is no room for it.
    void add(const anchor& added)
    {
        anchor* const place = place_of(added.position);
        if (left_ == 0 || place == nullptr) return;
        --left_;
        *place = added;
    }

  private:
    static constexpr usize max_probes = 128;

    /// Returns the entry of a position, or a free one for it; null if neither is within reach.
    anchor* place_of(u64 position) const
    {
        const usize first = static_cast<usize>(position * 0x9E3779B97F4A7C15 >> 32);
        for (usize probe = 0; probe < max_probes; ++probe) {
            anchor& place = places_[(first + probe) & mask_];
            if (place.position == position || place.position == 0) return &place;
        }
        return nullptr;
    }

    owned_array<anchor> places_;
    usize mask_ = 0;
    u64 left_ = 0;
};

/// A chain and the criteria by which it is ranked.
struct candidate {
    record_chain chain;
    u32 found = 0;             // records of trail and chain, including a lost one of known extent
    bool ends_well = false;    // nothing or a whole seal follows
    bool explains_all = false; // no bytes are left over between trail and chain
    bool is_natural = false;   // the first record's displacement is 0, the most frequent value

    /// A longer chain ranks above a longer trail: a false head that leads to the chain is
    /// improbable, while the size of the trail's last record may be damaged.
    auto rank() const
    {
        return std::tuple(found, ends_well, explains_all, chain.records, is_natural);
    }
};

/// Size of the longest payload that a file can have.
u32 max_payload(const file_layout& layout)
{
    return static_cast<u32>(
        std::min<u64>({layout.parameters.block_size(), layout.original_size, INT32_MAX}));
}

/// True if a record with a payload of 1 to `max_size` bytes can extend from one position to
/// another.
bool can_extend(u64 from, u64 to, u32 max_size)
{
    return to > from + record_head_bytes && to - from - record_head_bytes <= max_size;
}

class chain_search {
  public:
    chain_search(const byte_source& file, const file_layout& layout, const record_trail& trail)
        : file_(file), layout_(layout), trail_(trail), max_size_(max_payload(layout))
    {
    }

    [[nodiscard]] status run(const allocator& source, const listener& watcher);
    const candidate& best() const { return best_; }

  private:
    u64 first_position() const { return trail_.head_of(trail_.oldest()) + 1; }
    void add_ends();
    /// Scans the positions of [begin, end) from the last to the first; `bytes` are those at
    /// `begin`.
    void scan(const u8* bytes, u64 begin, u64 end);
    void try_head(u64 position, const record_head& head);
    /// Compares a chain that starts at `start` with the best one.
    void consider(const anchor& start, u8 displacement);
    /// Returns the number of records of the trail to keep before a chain.
    u32 kept_before(const anchor& start) const;

    const byte_source& file_;
    const file_layout& layout_;
    const record_trail& trail_;
    const u32 max_size_; // of a payload
    anchor_table anchors_;
    candidate best_;
};

status chain_search::run(const allocator& source, const listener& watcher)
{
    if (!anchors_.allocate(source, anchor_limit(layout_, file_) + seal_bytes + 1))
        return status::no_memory;
    add_ends();
    const u64 first = first_position();
    if (file_.size < first + record_head_bytes) return status::done;
    const u64 end = file_.size - overlap;
    if (file_.image != nullptr) {
        scan(file_.image + first, first, end);
        return status::done;
    }
    const usize room =
        static_cast<usize>(std::min<u64>(search_window_bytes, end - first)) + overlap;
    const auto buffer = make_array<u8>(source, room);
    if (!buffer) return status::no_memory;
    for (u64 window_end = end; window_end > first;) {
        const usize count =
            static_cast<usize>(std::min<u64>(search_window_bytes, window_end - first));
        const u64 begin = window_end - count;
        const status read = read_exactly(file_, watcher, begin, buffer.get(), count + overlap);
        if (read != status::done) return read;
        scan(buffer.get(), begin, window_end);
        window_end = begin;
    }
    return status::done;
}

void chain_search::add_ends()
{
    // No head fits into the last four bytes, so these positions aren't mistaken for heads.
    for (u32 left = 0; left <= seal_bytes; ++left)
        if (file_.size > left) anchors_.add({file_.size - left, 0, left});
}

void chain_search::scan(const u8* bytes, u64 begin, u64 end)
{
    for (u64 position = end; position-- > begin;) {
        const record_head head = unpack_record_head(bytes + (position - begin));
        if (head.size - 1 < max_size_) try_head(position, head); // 1 to max_size_
    }
}

void chain_search::try_head(u64 position, const record_head& head)
{
    const u64 next = position + record_head_bytes + head.size;
    if (next > file_.size) return;
    const anchor* const rest = anchors_.find(next);
    if (rest == nullptr || rest->records >= layout_.record_count()) return;
    const anchor start{position, rest->records + 1, rest->left};
    if (!find_block(layout_, head, layout_.record_count() - start.records)) return;
    anchors_.add(start);
    consider(start, head.displacement);
}

u32 chain_search::kept_before(const anchor& start) const
{
    const u32 oldest = trail_.oldest();
    const u32 limit = layout_.record_count() - start.records;
    u32 kept = std::min(trail_.count, limit);
    while (kept > oldest && trail_.head_of(kept) > start.position) --kept;
    // If bytes are left over although no record is lost, the last record before them is probably
    // longer than its head says, unless a plausible head follows it.
    const bool is_doubtful = kept == limit && kept == trail_.count && !trail_.is_confirmed;
    if (is_doubtful && kept > oldest && trail_.head_of(kept) != start.position &&
        can_extend(trail_.head_of(kept - 1), start.position, max_size_))
        --kept;
    return kept;
}

void chain_search::consider(const anchor& start, u8 displacement)
{
    const u32 total = layout_.record_count();
    if (total - start.records < trail_.oldest()) return; // contradicts too much of the trail
    candidate made;
    made.chain = {start.position, start.records, kept_before(start), 0, false};
    record_chain& chain = made.chain;
    chain.gap = trail_.head_of(chain.kept);
    const u32 lost = total - chain.records - chain.kept;
    chain.has_lost_one = lost == 1 && can_extend(chain.gap, chain.start, max_size_);
    made.found = total - lost + (chain.has_lost_one ? 1 : 0);
    made.ends_well = start.left == 0 || start.left == seal_bytes;
    made.explains_all = chain.has_lost_one || chain.gap == chain.start;
    made.is_natural = displacement >> 1 == 0;
    if (made.found > trail_.count && made.rank() > best_.rank()) best_ = made;
}

/// If only the head of the last record is lost, that record extends to the end of the file or to
/// the seal.  Of these two sizes, the one with fewer bits different from the size stated by the
/// damaged head is taken.
status find_last_record(const byte_source& file, const file_layout& layout,
                        const record_trail& trail, const listener& watcher,
                        std::optional<record_chain>& found)
{
    const u64 gap = trail.head_of(trail.count);
    const bool is_last = trail.count + 1 == layout.record_count() && !trail.is_confirmed;
    if (!is_last || file.size - gap <= record_head_bytes + seal_bytes) return status::done;
    std::array<u8, record_head_bytes> bytes;
    const status read = read_exactly(file, watcher, gap, bytes.data(), bytes.size());
    if (read != status::done) return read;
    const u32 stated = unpack_record_head(bytes.data()).size;
    const u32 to_end = static_cast<u32>(file.size - gap - record_head_bytes);
    const u32 to_seal = to_end - static_cast<u32>(seal_bytes);
    const bool is_sealed = std::popcount(stated ^ to_seal) < std::popcount(stated ^ to_end);
    const u64 record_end = file.size - (is_sealed ? seal_bytes : 0);
    found = {record_end, 0, trail.count, gap, can_extend(gap, record_end, max_payload(layout))};
    return status::done;
}

} // namespace

u64 chain_search_memory(const file_layout& layout, const byte_source& file)
{
    const u64 table = table_size(anchor_limit(layout, file) + seal_bytes + 1) * sizeof(anchor);
    return table + (file.image != nullptr ? 0 : search_window_bytes + overlap);
}

status find_chain(const allocator& source, const byte_source& file, const file_layout& layout,
                  const record_trail& trail, const listener& watcher,
                  std::optional<record_chain>& found)
{
    chain_search search(file, layout, trail);
    const status searched = search.run(source, watcher);
    if (searched != status::done) return searched;
    if (search.best().found == 0) return find_last_record(file, layout, trail, watcher, found);
    found = search.best().chain;
    return status::done;
}

} // namespace quarnex
