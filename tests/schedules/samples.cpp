#include "schedules/samples.h"

#include "common/bytes.h"
#include "support/driver_runs.h"
#include "support/handles.h"
#include "support/qrx_file.h"

#include <algorithm>

namespace quarnex::test {
namespace {

bytes make_content(usize size, u64 seed)
{
    return text_in_each_block(size, 2000, seed);
}

} // namespace

sample_set::sample_set(const std::string& directory) : directory_(directory)
{
    // Files of several blocks are few: the thread sanitizer makes coding slow.
    const usize sizes[] = {0,       1,      37,      600,         5000,        5000,         30000,
                           100000,  245759, 245760,  245761,      400000,      mib - 1,      mib,
                           mib + 1, 700000, 2 * mib, 2 * mib + 5, 3 * mib - 1, 4 * mib + 777};
    for (const usize size : sizes)
        samples_.push_back({static_cast<u32>(samples_.size()), make_content(size, size), {}});
    // The last block is stored.  More noise would take long.
    const bytes noise = find_shape("random").make(20000, 1);
    samples_.push_back({static_cast<u32>(samples_.size()), noise, {}});
    const bytes mixed = joined({make_content(mib, 1), noise});
    samples_.push_back({static_cast<u32>(samples_.size()), mixed, {}});
    for (sample& each : samples_) {
        each.name = directory_ + "/sample" + std::to_string(each.number);
        write_file(each.name, each.content);
    }
    longest_ = {static_cast<u32>(samples_.size()), make_content(12 * mib, 1),
                directory_ + "/longest"};
    write_file(longest_.name, longest_.content);
}

const sample& sample_set::pick(random_source& random, bool (*suits)(const sample&)) const
{
    for (;;) {
        const sample& picked = samples_[random.below(static_cast<u32>(samples_.size()))];
        if (suits(picked)) return picked;
    }
}

const sample& sample_set::any(random_source& random) const
{
    return pick(random, [](const sample&) { return true; });
}

const sample& sample_set::any_tiny(random_source& random) const
{
    return pick(random, [](const sample& each) { return each.is_tiny(); });
}

const sample& sample_set::any_small(random_source& random) const
{
    return pick(random, [](const sample& each) { return each.is_small(); });
}

std::string sample_set::compressed_name(const sample& original,
                                        const file_parameters& parameters) const
{
    return original.name + "-" + std::to_string(parameters.codec.method) +
           std::to_string(parameters.codec.level) + "-" + std::to_string(parameters.filter_flags) +
           ".qrx";
}

const bytes& sample_set::compressed(const sample& original, const file_parameters& parameters)
{
    const std::string name = compressed_name(original, parameters);
    for (const auto& [known, image] : compressed_) {
        if (known == name) return image;
    }
    event_recorder recorder;
    if (compress(0, recorder, parameters, original.name, name).result != status::done) std::abort();
    return compressed_.emplace_back(name, read_file(name)).second;
}

file_parameters any_parameters(random_source& random, bool is_tiny)
{
    file_parameters parameters;
    parameters.codec.method = static_cast<u8>(first_method + random.below(last_method));
    parameters.codec.level = static_cast<u8>(random.below(is_tiny ? last_level + 1U : 2));
    parameters.codec.hash_bits = 12;
    parameters.codec.chain_bits = 1;
    parameters.filter_flags = random.below(16) == 0 ? 1 : 0;
    parameters.block_mb = 1;
    return parameters;
}

qrx_params params_of(const file_parameters& parameters)
{
    auto params = sized<qrx_params>();
    params.method = parameters.codec.method;
    params.level = parameters.codec.level;
    params.filter = parameters.filter_flags;
    params.hash_bits = static_cast<u32>(parameters.codec.hash_bits);
    params.chain_bits = static_cast<u32>(parameters.codec.chain_bits);
    params.block_mib = parameters.block_mb;
    return params;
}

bytes in_order(const bytes& image)
{
    const auto parsed = parse_qrx(image);
    if (!parsed) return {};
    const auto payloads = payloads_in_order(*parsed);
    if (!payloads) return {};
    qrx_file ordered{parsed->header, {}};
    for (const bytes& payload : *payloads) ordered.records.push_back({0, payload});
    return build_qrx(ordered);
}

bool is_start_of(const bytes& image, const bytes& expected)
{
    const usize known = std::min(image.size(), header_bytes);
    if (!std::equal(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(known),
                    expected.begin()))
        return false;
    const auto parsed = parse_qrx(expected);
    if (!parsed) return false;
    usize start = header_bytes;
    for (i32 number = 0; image.size() >= start + record_head_bytes; ++number) {
        const usize size = load_u32(&image[start]);
        const u8 displacement = image[start + 4];
        const i32 distance = displacement >> 1;
        const i32 block = number + ((displacement & 1) != 0 ? -distance : distance);
        start += record_head_bytes;
        if (block < 0 || static_cast<usize>(block) >= parsed->records.size()) return false;
        const bytes& payload = parsed->records[static_cast<usize>(block)].payload;
        const usize there = std::min(size, image.size() - start);
        if (size != payload.size() ||
            !std::equal(payload.begin(), payload.begin() + static_cast<std::ptrdiff_t>(there),
                        image.begin() + static_cast<std::ptrdiff_t>(start)))
            return false;
        start += there;
    }
    return true;
}

} // namespace quarnex::test
