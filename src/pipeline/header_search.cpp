#include "pipeline/header_search.h"

#include "coding/main_alphabet.h"
#include "common/scratch.h"
#include "format/checksum.h"
#include "format/filters.h"
#include "pipeline/block_coder.h"
#include "pipeline/memory_needs.h"
#include "pipeline/read_exactly.h"
#include "pipeline/record_search.h"

#include <algorithm>
#include <array>
#include <utility>

namespace quarnex {
namespace {

constexpr u32 mib = u32{1} << 20;
/// Added to a length before its slot is taken (main_alphabet.h).
constexpr u32 slot_margin = 256;
static_assert(slot_count(1000) == value_slot(1000 + slot_margin) + 1);
/// Largest block size tried, unless the header states a larger one.
constexpr u16 max_trial_mb = 64;
// The usual block sizes.
constexpr u16 default_mb = 32;
constexpr u16 usual_mb = 16;
constexpr u16 max_block_mb = 2047;
constexpr u8 first_parse_level = 8; // levels 8 and 9 have a shorter minimum match
constexpr u8 default_level = 3;
constexpr u8 max_context_bits = 8;
/// Method 3 comes last: its payloads most often seem to end exactly by chance.
constexpr std::array<u8, last_method> methods_by_certainty{1, 2, 4, 5, 3};
/// Records decoded to check parameters.
constexpr u32 max_samples = 3;
/// Approximate limit on the bytes decoded by all trials, to bound the time.
constexpr u64 max_trial_bytes = u64{4} << 30;

struct record_extent {
    u64 offset = 0; // of the payload
    u32 size = 0;
    u32 number = 0;
};

class header_search {
  public:
    header_search(const allocator& source, u64 memory_limit, const byte_source& file,
                  const listener& watcher, const file_header& stated)
        : source_(source), memory_limit_(memory_limit), file_(file), watcher_(watcher),
          stated_(stated), memory_(source)
    {
    }

    [[nodiscard]] status find_records();
    /// Sets `is_contradicted` if the records found don't fit the header, which is valid.
    [[nodiscard]] status compare(const file_layout& layout, bool& is_contradicted);
    [[nodiscard]] status find(bool is_valid, std::optional<file_layout>& found);
    /// What memory was lacking, if any: a trial may have failed only for that.
    const notice& lack() const { return lack_; }

  private:
    /// Returns whether `needed` bytes are within the limit.
    bool may_allocate(u64 needed);
    /// Makes room for `size` bytes in a buffer of `room` bytes.
    [[nodiscard]] bool make_room(owned_array<u8>& buffer, u64& room, u64 size);
    /// Walks over all heads from `position` on; `count` receives their number, 0 if they don't lead
    /// to the end of the file.
    [[nodiscard]] status walk(u64 position, u32 number, u32& count);
    void keep_sample(const record_extent& record);
    [[nodiscard]] status load(const record_extent& record);
    /// Decodes the loaded payload.  The result is empty if memory is insufficient, or was in an
    /// earlier trial, or if the limit on trials is reached.
    codec_result trial(const codec_parameters& parameters, u64 length);
    bool is_exact(const codec_parameters& parameters, u64 length)
    {
        return length != 0 && trial(parameters, length).exact_end;
    }

    [[nodiscard]] status find_parameters(bool usual_only, file_parameters& found, bool& is_found);
    /// Returns a block length, a multiple of `unit` from `min` to `max`, at which the loaded
    /// payload ends exactly: the longest of those with the same number of slots.  0 if there is
    /// none.
    u64 find_length(const codec_parameters& parameters, u64 min, u64 max, u64 unit);
    /// Return the block size at which the loaded payload ends exactly, or 0 if there is none.  The
    /// first tries only sizes that are stated or usual, the second tries any size.
    u16 usual_block_mb(const codec_parameters& parameters);
    u16 any_block_mb(const codec_parameters& parameters);
    /// Tries all codec parameters on the loaded payload.
    bool try_all(bool is_usual, file_parameters& found);
    [[nodiscard]] status find_last_length(const file_parameters& parameters, u64& length);
    [[nodiscard]] status find_filter(file_parameters& parameters);
    /// Sets stated_mb_.  A large block size for which there is no memory is probably damage.
    void check_stated_mb();
    u8 level_of(bool is_parse) const
    {
        const u8 stated = stated_.parameters.codec.level;
        if (stated <= last_level && (stated >= first_parse_level) == is_parse) return stated;
        return is_parse ? last_level : default_level;
    }

    const allocator& source_;
    const u64 memory_limit_;
    const byte_source& file_;
    const listener& watcher_;
    const file_header& stated_;
    scratch memory_;
    u32 count_ = 0; // records
    bool is_walked_ = false;
    std::array<record_extent, max_samples> samples_{}; // of whole blocks, if there is more than one
    u32 sample_count_ = 0;
    u16 stated_mb_ = 0; // block size of the header; 0 if it isn't tried
    u16 stored_mb_ = 0; // block size according to stored blocks
    u16 min_mb_ = 1;    // according to the largest payload
    record_extent first_{};
    record_extent last_{};
    owned_array<u8> payload_;
    u64 payload_room_ = 0;
    u32 payload_size_ = 0;
    owned_array<u8> block_;
    u64 block_room_ = 0;
    u64 trial_bytes_ = 0;
    notice lack_{.what = status::done};       // of memory, the first one
    notice large_lack_{.what = status::done}; // the same for blocks of the stated size
};

bool header_search::may_allocate(u64 needed)
{
    if (lack_.what != status::done) return false;
    if (needed <= memory_limit_) return true;
    lack_ = {.what = status::over_limit, .wanted = needed, .got = memory_limit_};
    return false;
}

void header_search::check_stated_mb()
{
    const u16 stated = stated_.parameters.block_mb;
    stated_mb_ = stated <= max_block_mb ? stated : u16{0};
    const u64 size = u64{stated_mb_} * mib;
    const u64 payload = u64{min_mb_} * mib + last_.size; // a bound for all payloads tried
    if (stated_mb_ <= max_trial_mb ||
        (may_allocate(size + payload) && make_room(block_, block_room_, size)))
        return;
    large_lack_ = std::exchange(lack_, {.what = status::done});
    stated_mb_ = 0;
}

bool header_search::make_room(owned_array<u8>& buffer, u64& room, u64 size)
{
    if (room >= size) return true;
    buffer.reset();
    room = 0;
    buffer = make_array<u8>(source_, static_cast<usize>(size));
    if (buffer)
        room = size;
    else
        lack_ = {.what = status::no_memory};
    return buffer != nullptr;
}

status header_search::walk(u64 position, u32 number, u32& count)
{
    count = 0;
    sample_count_ = 0;
    stored_mb_ = 0;
    record_extent previous{};
    for (;; ++number) {
        const u64 left = file_.size - position;
        if (left == 0 || left == seal_bytes) break;
        if (left < record_head_bytes) return status::done;
        std::array<u8, record_head_bytes> bytes;
        const status read = read_exactly(file_, watcher_, position, bytes.data(), bytes.size());
        if (read != status::done) return read;
        const record_head head = unpack_record_head(bytes.data());
        if (head.size == 0 || head.size > left - record_head_bytes || head.size > INT32_MAX)
            return status::done;
        if (previous.size != 0) keep_sample(previous); // the last record may hold a short block
        previous = {position + record_head_bytes, head.size, number};
        if (number == 0) first_ = previous;
        position = previous.offset + head.size;
    }
    last_ = previous;
    if (previous.size != 0) count = number;
    return status::done;
}

void header_search::keep_sample(const record_extent& record)
{
    const u32 needed = (record.size + mib - 1) / mib;
    if (needed <= max_block_mb) min_mb_ = std::max(min_mb_, static_cast<u16>(needed));
    if (record.size % mib == 0 && needed <= max_block_mb)
        stored_mb_ = std::max(stored_mb_, static_cast<u16>(needed));
    else if (sample_count_ < max_samples)
        samples_[sample_count_++] = record;
}

status header_search::find_records()
{
    status read = walk(file_header_bytes, 0, count_);
    is_walked_ = count_ != 0;
    if (read != status::done || is_walked_ || file_.size <= file_header_bytes) return read;
    // The first head is damaged as well: search with a layout that allows any chain of records.
    file_layout any;
    any.parameters.codec.method = first_method;
    any.parameters.block_mb = max_block_mb;
    any.block_count = static_cast<u32>(std::min<u64>(file_.size / 64 + 256, u32{1} << 20));
    any.original_size = any.block_count * any.parameters.block_size();
    record_trail trail;
    std::optional<record_chain> chain;
    if (!may_allocate(chain_search_memory(any, file_))) return status::done;
    read = find_chain(source_, file_, any, trail, watcher_, chain);
    if (read == status::no_memory) {
        lack_ = {.what = read};
        return status::done;
    }
    if (read != status::done || !chain || chain->records == 0) return read;
    return walk(chain->start, 1, count_);
}

status header_search::load(const record_extent& record)
{
    payload_size_ = 0;
    block_.reset(); // may be far larger than the next trials need
    block_room_ = 0;
    const bool has_room =
        may_allocate(record.size) && make_room(payload_, payload_room_, record.size);
    if (!has_room) return status::done; // trials fail
    payload_size_ = record.size;
    return read_exactly(file_, watcher_, record.offset, payload_.get(), record.size);
}

codec_result header_search::trial(const codec_parameters& parameters, u64 length)
{
    const bool is_possible = payload_size_ != 0 && length <= INT32_MAX &&
                             is_method(parameters.method) && trial_bytes_ <= max_trial_bytes;
    if (!is_possible) return {};
    const u64 needed =
        payload_room_ + std::max(block_room_, length) + decoder_memory(parameters, length);
    if (!may_allocate(needed) || !make_room(block_, block_room_, length)) return {};
    codec_job job;
    job.parameters = parameters;
    job.in_buf = payload_.get();
    job.in_len = payload_size_;
    job.out_buf = block_.get();
    job.out_len = static_cast<u32>(length);
    job.memory = &memory_;
    const codec_result result = decode(job);
    trial_bytes_ += payload_size_ + result.length;
    if (result.status != codec_status::done) lack_ = {.what = status::no_memory};
    return result;
}

u64 header_search::find_length(const codec_parameters& parameters, u64 min, u64 max, u64 unit)
{
    const bool has_slots = parameters.method == 3 || parameters.method == 4;
    for (u64 length = min; length <= max;) {
        // Streams of methods 3 and 4 depend on the number of slots, the same for a range of
        // lengths.
        const u32 slot = value_slot(static_cast<u32>(length) + slot_margin);
        const u64 end = std::min<u64>(max, slot_base(slot + 1) - slot_margin - 1);
        const u64 decoded = trial(parameters, end).length;
        const u64 tried = decoded / unit * unit;
        if (tried >= length && is_exact(parameters, tried)) return tried;
        if (decoded < end && !has_slots) return 0;
        length = end + 1;
    }
    return 0;
}

u16 header_search::usual_block_mb(const codec_parameters& parameters)
{
    if (count_ == 1) {
        const bool is_possible = stated_.original_size <= u64{stated_mb_} * mib;
        return is_possible && is_exact(parameters, stated_.original_size) ? stated_mb_ : u16{0};
    }
    if (stored_mb_ != 0) return is_exact(parameters, u64{stored_mb_} * mib) ? stored_mb_ : u16{0};
    for (const u16 tried : {stated_mb_, default_mb, usual_mb})
        if (tried >= min_mb_ && is_exact(parameters, u64{tried} * mib)) return tried;
    return 0;
}

u16 header_search::any_block_mb(const codec_parameters& parameters)
{
    const u64 max = u64{std::max(max_trial_mb, stated_mb_)} * mib;
    if (count_ > 1) {
        const u64 min = std::max<u64>(payload_size_ + 1, u64{min_mb_} * mib);
        return static_cast<u16>(find_length(parameters, min, max, mib) / mib);
    }
    const u64 length = find_length(parameters, u64{payload_size_} + 1, max, 1);
    if (length == 0) return 0;
    if (length <= u64{stated_mb_} * mib) return stated_mb_;
    return length <= u64{default_mb} * mib ? default_mb : max_trial_mb;
}

bool header_search::try_all(bool is_usual, file_parameters& found)
{
    const auto has_found = [&](const codec_parameters& tried) {
        const u16 block_mb = is_usual ? usual_block_mb(tried) : any_block_mb(tried);
        if (block_mb == 0) return false;
        found.codec = tried;
        found.block_mb = block_mb;
        return true;
    };
    codec_parameters tried = stated_.parameters.codec;
    const bool is_valid = is_method(tried.method) && tried.level <= last_level &&
                          tried.lit_ctx_bits <= max_context_bits;
    if (is_valid && has_found(tried)) return true;
    for (const u8 method : methods_by_certainty) {
        const u32 contexts = method == 4 ? max_context_bits + 1 : 1;
        for (u32 choice = 0; choice < 2 * contexts; ++choice) {
            tried.method = method;
            tried.level = level_of(choice >= contexts);
            if (method == 4) tried.lit_ctx_bits = static_cast<u8>(choice % contexts);
            if (has_found(tried)) return true;
        }
    }
    return false;
}

status header_search::find_parameters(bool usual_only, file_parameters& found, bool& is_found)
{
    is_found = false;
    found = stated_.parameters;
    check_stated_mb();
    if (count_ == 1) samples_[sample_count_++] = last_;
    if (sample_count_ == 0 && stored_mb_ != 0) { // all blocks but the last are stored
        found.block_mb = stored_mb_;
        if (!is_method(found.codec.method)) found.codec.method = first_method;
        found.codec.level = std::min(found.codec.level, last_level);
        is_found = true;
        return status::done;
    }
    for (const bool is_usual : {true, false}) {
        if (!is_usual && usual_only) break;
        for (u32 sample = 0; sample < sample_count_ && !is_found; ++sample) {
            const status read = load(samples_[sample]);
            if (read != status::done) return read;
            is_found = try_all(is_usual, found);
        }
    }
    if (!is_found && lack_.what == status::done) lack_ = large_lack_;
    return status::done;
}

status header_search::find_last_length(const file_parameters& parameters, u64& length)
{
    const status read = load(last_);
    if (read != status::done) return read;
    const u64 block_size = parameters.block_size();
    const u64 before = (count_ - 1) * block_size;
    const u64 low_bits =
        stated_.original_size % block_size; // right if only its high bytes are damaged
    for (const u64 tried : {stated_.original_size - before, low_bits}) {
        if (tried == 0 || tried > block_size) continue;
        length = tried;
        if (tried == last_.size || is_exact(parameters.codec, tried)) return status::done;
    }
    length = find_length(parameters.codec, u64{last_.size} + 1, block_size, 1);
    if (length == 0) length = last_.size; // a payload that isn't a stream is a stored block
    if (length > block_size) length = 0;
    return status::done;
}

status header_search::find_filter(file_parameters& parameters)
{
    parameters.filter_flags = 0;
    if (first_.size == 0) return status::done;
    const status read = load(first_);
    if (read != status::done || payload_size_ < 2) return read;
    const u8* start = payload_.get();
    if (first_.size % mib != 0) {
        if (trial(parameters.codec, std::min<u64>(parameters.block_size(), mib)).length < 2)
            return status::done;
        start = block_.get();
    }
    if (start[0] == 'M' && start[1] == 'Z') parameters.filter_flags = filter_x86;
    return status::done;
}

status header_search::compare(const file_layout& layout, bool& is_contradicted)
{
    is_contradicted = false;
    if (!is_walked_ || layout.block_count == 0) return status::done;
    const codec_parameters& codec = layout.parameters.codec;
    const u64 block_size = layout.parameters.block_size();
    bool is_confirmed = sample_count_ == 0 && count_ != 1;
    for (u32 sample = 0; sample < sample_count_ && !is_confirmed; ++sample) {
        const status read = load(samples_[sample]);
        if (read != status::done) return read;
        is_confirmed = is_exact(codec, block_size);
    }
    if (count_ != layout.block_count) {
        // A file that was cut between two records ends with a whole block.
        const status read = load(last_);
        if (read != status::done) return read;
        const bool is_cut = count_ < layout.block_count &&
                            (last_.size == block_size || is_exact(codec, block_size));
        is_contradicted = !is_cut;
        return status::done;
    }
    if (count_ == 1) {
        const status read = load(last_);
        if (read != status::done) return read;
        is_confirmed = last_.size == layout.original_size || is_exact(codec, layout.original_size);
    }
    is_contradicted = !is_confirmed;
    return status::done;
}

status header_search::find(bool is_valid, std::optional<file_layout>& found)
{
    if (count_ == 0 || lack_.what != status::done) return status::done;
    // If the number of blocks is right, damaged payloads are more probable than a wrong header.
    const std::optional<file_layout> stated = is_valid ? lay_out(stated_) : std::nullopt;
    const bool is_probable = stated && stated->block_count == count_;
    file_parameters parameters;
    bool is_found = false;
    status read = find_parameters(is_probable, parameters, is_found);
    if (read != status::done || !is_found) return read;
    if (!is_valid) {
        const file_parameters& given = stated_.parameters;
        const bool is_filter_right =
            given.codec.method == parameters.codec.method && given.block_mb == parameters.block_mb;
        parameters.codec.hash_bits = parameters.codec.chain_bits = 0; // the defaults
        if (parameters.codec.lit_ctx_bits > max_context_bits) parameters.codec.lit_ctx_bits = 0;
        if (!is_filter_right) read = find_filter(parameters);
    }
    u64 last = 0;
    if (read == status::done) read = find_last_length(parameters, last);
    if (read != status::done || last == 0) return read;
    found = lay_out({(count_ - 1) * parameters.block_size() + last, parameters});
    return status::done;
}

} // namespace

status find_layout(const allocator& source, u64 memory_limit, const byte_source& file,
                   const listener& watcher, bool is_valid, std::optional<file_layout>& found)
{
    std::array<u8, file_header_bytes> bytes;
    status searched = read_exactly(file, watcher, 0, bytes.data(), bytes.size());
    if (searched != status::done) return searched;
    file_header stated = unpack_fields(bytes);
    header_search search(source, memory_limit, file, watcher, stated);
    searched = search.find_records();
    bool is_contradicted = true;
    if (is_valid && searched == status::done)
        searched = search.compare(*lay_out(stated), is_contradicted);
    if (searched == status::done && is_contradicted) searched = search.find(is_valid, found);
    if (searched != status::done || search.lack().what == status::done) return searched;
    found.reset();
    return is_valid ? status::done : watcher.report(search.lack());
}

} // namespace quarnex
