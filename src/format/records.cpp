#include "format/records.h"

#include <algorithm>

namespace quarnex {

std::optional<file_layout> lay_out(const file_header& header)
{
    const file_parameters& parameters = header.parameters;
    if (parameters.codec.level > last_level || parameters.block_mb == 0) return {};
    const u64 count = count_blocks(header.original_size, parameters.block_size());
    return file_layout{parameters, header.original_size,
                       static_cast<u32>(std::min<u64>(count, UINT32_MAX))};
}

std::optional<block_extent> find_block(const file_layout& layout, const record_head& head,
                                       u32 sequence)
{
    const u32 count = layout.record_count();
    const i64 index = displaced_index(head.displacement, sequence);
    if (sequence >= count || index < 0 || index >= count) return {};
    const u64 length =
        block_length(layout.original_size, layout.parameters.block_size(), static_cast<u64>(index));
    if (length > INT32_MAX || head.size > length) return {};
    const bool is_stored = head.size == length;
    if (!is_stored && !is_method(layout.parameters.codec.method)) return {};
    return block_extent{static_cast<u32>(index), static_cast<u32>(length)};
}

} // namespace quarnex
